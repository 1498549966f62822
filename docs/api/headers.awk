# Makes documentation of a header's plain comments, for Doxygen: a comment in front of a declaration, or behind one on
# its line, is about it, and the comment that a header begins with is about the file. What Doxygen would take for
# markup stays text; indented lines behind an empty one are code.

function indent_of(line) {
    match(line, /^ */)
    return RLENGTH
}

function without_markup(text) {
    gsub(/[\\@&$#<>%|]/, "\\\\&", text)
    gsub(/::/, "\\::", text)
    return text
}

# In quotes and accents Doxygen takes nothing for markup.
function escaped(line,    result) {
    sub(/^ +/, " ", line)
    while (match(line, /"[^"]*"|`[^`]*`/)) {
        result = result without_markup(substr(line, 1, RSTART - 1)) substr(line, RSTART, RLENGTH)
        line = substr(line, RSTART + RLENGTH)
    }
    return result without_markup(line)
}

# The text of a comment, escaped unless it is code.
function text_of(line) {
    sub(/^ *\/\/+/, "", line)
    if (line ~ /^ *$/) {
        after_blank = 1
        in_code = 0
        return ""
    }
    if (after_blank && line ~ /^     /)
        in_code = 1
    else if (line !~ /^     /)
        in_code = 0
    after_blank = 0
    if (in_code)
        return line
    return escaped(line)
}

function write_block(    i, margin) {
    after_blank = 1
    in_code = 0
    for (i = 1; i <= count; i++) {
        margin = substr(block[i], 1, indent_of(block[i]))
        # "Threads: ..." and its like begin lines of their own: no line is added, so that warnings name the right ones.
        print margin (block[i] ~ /^ *\/\/ [A-Z][a-z]+(: |  )/ ? "/// <br>" : "///") text_of(block[i])
    }
    count = 0
}

function drop_block(    i) {
    for (i = 1; i <= count; i++)
        print block[i]
    count = 0
}

BEGIN { print "/// \\file" }

# Comments wait for the line behind them.
/^ *\/\// {
    if (trailing && indent_of($0) > trailing) {
        print "///<" text_of($0)
        next
    }
    block[++count] = $0
    trailing = 0
    next
}

/^#pragma once/ {
    write_block()
    print
    next
}

{
    trailing = 0
    if ($0 ~ /^ *$/ || $0 ~ /^ *[})#]/)
        drop_block()
    else
        write_block()
}

/^ .*[;,}A-Za-z0-9] +\/\/ / && !/^ *(return|if|for|while|case|else)/ {
    at = match($0, / \/\/ /)
    if (substr($0, 1, at) !~ /"/) {
        trailing = indent_of($0)
        after_blank = 0
        print substr($0, 1, at) "///<" text_of(substr($0, at + 1))
        next
    }
}

{ print }
