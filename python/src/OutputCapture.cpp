#include "OutputCapture.h"

#include <iostream>
#include <sstream>
#include <streambuf>

namespace velmar {
namespace python {
namespace {

thread_local std::string* threadCapture = nullptr;

class RoutingBuffer : public std::streambuf {
 public:
  explicit RoutingBuffer(std::streambuf* original) : original_(original) {}

 protected:
  int overflow(int c) override {
    if (c == traits_type::eof()) {
      return traits_type::not_eof(c);
    }
    if (threadCapture != nullptr) {
      threadCapture->push_back(static_cast<char>(c));
      return c;
    }
    return original_->sputc(static_cast<char>(c));
  }

  std::streamsize xsputn(const char* text, std::streamsize count) override {
    if (threadCapture != nullptr) {
      threadCapture->append(text, static_cast<std::size_t>(count));
      return count;
    }
    return original_->sputn(text, count);
  }

  int sync() override { return threadCapture != nullptr ? 0 : original_->pubsync(); }

 private:
  std::streambuf* original_;
};

}  // namespace

void RouteStandardOutput() {
  // Never deleted: std::cout is flushed at exit, after every static object of this module is gone.
  static const bool routed = [] {
    std::cout.rdbuf(new RoutingBuffer(std::cout.rdbuf()));
    return true;
  }();
  static_cast<void>(routed);
}

CapturedOutput::CapturedOutput() : outer_(threadCapture) {
  threadCapture = &text_;
}

CapturedOutput::~CapturedOutput() {
  threadCapture = outer_;
}

std::vector<std::string> CapturedOutput::Lines() const {
  std::vector<std::string> lines;
  std::istringstream stream(text_);
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty()) {
      lines.push_back(line);
    }
  }
  return lines;
}

std::mutex& StandardOutputLock() {
  static std::mutex lock;
  return lock;
}

}  // namespace python
}  // namespace velmar
