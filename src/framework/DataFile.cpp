#include "framework/DataFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace velmar {
namespace {

// Closes the descriptor however the read ends.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) {
      close(fd_);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Get() const { return fd_; }

 private:
  int fd_;
};

constexpr std::size_t kChunkBytes = 64 * 1024;

}  // namespace

DataFileStatus ReadDataFile(const std::string& path, std::string& contents, std::size_t max_bytes) {
  contents.clear();
  // Without blocking: opening a FIFO with no writer would otherwise wait for one.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (file.Get() < 0) {
    return DataFileStatus::kCannotOpen;
  }
  struct stat status {};
  if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return DataFileStatus::kNotRegular;
  }
  if (static_cast<unsigned long long>(status.st_size) > max_bytes) {
    return DataFileStatus::kTooLarge;
  }
  std::string read;
  char chunk[kChunkBytes];
  for (;;) {
    const ssize_t got = ::read(file.Get(), chunk, sizeof(chunk));
    if (got == 0) {
      break;
    }
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      return DataFileStatus::kReadError;
    }
    // The file may have grown since it was measured.
    if (read.size() + static_cast<std::size_t>(got) > max_bytes) {
      return DataFileStatus::kTooLarge;
    }
    read.append(chunk, static_cast<std::size_t>(got));
  }
  contents.swap(read);
  return DataFileStatus::kRead;
}

}  // namespace velmar
