#include <support/DecimalComma.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <support/TemporaryFolder.h>

DecimalComma::DecimalComma() {
    const TemporaryFolder folder;
    folder.Write("source",
                 "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n");
    folder.Write("characters", "CHARMAP\nEND CHARMAP\n");
    // It complains about all that is missing, and with -c does its work all the same.
    const std::string command =
        "cd '" + folder.GetPath() + "' && localedef -c -i ./source -f ./characters ./comma";
    const int status = std::system((command + " >messages 2>&1").c_str());
    setenv("LOCPATH", folder.GetPath().c_str(), 1);
    std::setlocale(LC_NUMERIC, "comma");
    unsetenv("LOCPATH");
    char text[8];
    std::snprintf(text, sizeof text, "%g", 1.5);
    if (std::strcmp(text, "1,5") != 0)
        throw std::runtime_error("no locale with a decimal comma, localedef: " + std::to_string(status) +
                                 " " + folder.Read("messages"));
}

DecimalComma::~DecimalComma() {
    std::setlocale(LC_NUMERIC, "C");
}
