#include "framework/Messages.h"

#include <iostream>

namespace velmar {

void PrintLine(const std::string& line) {
  std::cout << line << std::endl;
}

void PrintUnterminated(const std::string& text) {
  std::cout << text;
}

void PrintErrorLine(const std::string& line) {
  std::cerr << line << std::endl;
}

}  // namespace velmar
