#include "receiver/Storage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace velmora::receiver {

namespace {

constexpr size_t kMaxStem = 64;
constexpr size_t kMaxExtension = 16;

bool isSafeChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
}

std::system_error systemError(const std::string& what) { return {errno, std::generic_category(), what}; }

}  // namespace

Storage::Storage(const std::string& root) {
  rootFd_ = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (rootFd_ < 0) throw systemError("cannot open the storage folder " + root);
}

Storage::~Storage() {
  if (rootFd_ >= 0) ::close(rootFd_);
}

std::string Storage::safeName(std::string_view clientFileName) {
  const size_t slash = clientFileName.find_last_of("/\\");
  std::string_view last = slash == std::string_view::npos ? clientFileName : clientFileName.substr(slash + 1);
  std::string name;
  for (char c : last) name += isSafeChar(c) ? c : '_';
  name.erase(0, name.find_first_not_of('.'));
  if (name.empty()) return "upload";

  std::string stem = name, extension;
  if (const size_t dot = name.rfind('.'); dot != std::string::npos && name.size() - dot - 1 <= kMaxExtension) {
    stem = name.substr(0, dot);
    extension = name.substr(dot);
  }
  if (stem.size() > kMaxStem) stem.resize(kMaxStem);
  return stem + extension;
}

bool Storage::isSafeName(std::string_view name) {
  if (name.empty() || name.size() > 255 || name.front() == '.') return false;
  for (char c : name)
    if (!isSafeChar(c)) return false;
  return true;
}

Storage::NewFile Storage::create(std::string_view clientFileName) {
  const std::string safe = safeName(clientFileName);
  for (;;) {
    char prefix[16];
    std::snprintf(prefix, sizeof prefix, "%06u-", ++counter_);
    NewFile file{-1, prefix + safe};
    // O_EXCL: a name already taken (by an earlier run, or a concurrent upload) is skipped.
    file.fd = ::openat(rootFd_, file.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (file.fd >= 0) return file;
    if (errno != EEXIST) throw systemError("cannot create " + file.name);
  }
}

void Storage::remove(const std::string& name) const { ::unlinkat(rootFd_, name.c_str(), 0); }

int Storage::openForReading(std::string_view name) const {
  if (!isSafeName(name)) return -1;
  const int fd = ::openat(rootFd_, std::string(name).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  struct stat info {};
  if (fd >= 0 && (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))) {
    ::close(fd);
    return -1;
  }
  return fd;
}

}  // namespace velmora::receiver
