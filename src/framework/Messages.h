// Every message the library writes goes through these functions, so where each kind of message
// goes is decided here: diagnostics are lines on standard output, except the ground detector's
// two, whose stream and line end hosts already parse as they are.
#ifndef VELMAR_FRAMEWORK_MESSAGES_H
#define VELMAR_FRAMEWORK_MESSAGES_H

#include <string>

namespace velmar {

// One line on standard output, ended by std::endl: every "[algo]:" message.
void PrintLine(const std::string& line);
// Text on standard output with no line end: the ground detector's failed-fit notice.
void PrintUnterminated(const std::string& text);
// One line on the error stream, ended by std::endl: the plane-fit detector's parameter check.
void PrintErrorLine(const std::string& line);

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_MESSAGES_H
