// Names and texts from tag files and command lines, made safe for where the host shows them:
// such a text may hold any byte.
#ifndef KORVAN_TOOLS_TEXT_ESCAPE_H
#define KORVAN_TOOLS_TEXT_ESCAPE_H

#include <string>

namespace refhost {

// A CSV field, quoted as RFC 4180 does when it holds a comma, a quote, a line break or another
// control character: between double quotes, each quote doubled.
std::string csvField(const std::string& text);

// The text for a terminal: control characters (C0, DEL and C1) and bytes that are not UTF-8 as
// \xNN, so that no text can move the cursor, change colours or hide what follows it.
std::string visibleText(const std::string& text);

}  // namespace refhost

#endif
