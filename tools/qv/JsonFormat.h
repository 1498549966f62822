// JSON values as the tool prints them: the library's layout, but valid JSON without exception and no digit lost.
//
// The differences to JSONValue::Format():
//   numbers        have the fewest digits that read back as the same double, where the library has six; they are
//                  written as JavaScript does (1000000, 1e+21). Infinity is 1e999, which reads back as infinity; what
//                  is no number (NaN) is null.
//   member names   are escaped as strings are.
//   surrogates     without their other half, and the halves of a pair, which the library does not join, are \u escapes.
#pragma once

#include <string>
#include <string_view>

class JSONValue;

// Appends the value, compact or pretty, without a line end behind it.
void AppendJson(std::string& out, const JSONValue& value, bool bPretty);

// Text of the library's with its surrogates as \u escapes, which makes it UTF-8.
std::string EscapeSurrogates(std::string_view text);
