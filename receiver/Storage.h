#pragma once
#include <atomic>
#include <string>
#include <string_view>

namespace velmora::receiver {

// The folder the receiver stores uploads in. Every name it hands out is made here from
// a safe alphabet, and every file is opened relative to the folder's own descriptor, so
// nothing a client sends (a "..", an absolute path, a backslash, a NUL byte, an endless
// name) can place or read a file anywhere else.
class Storage {
 public:
  // Throws std::system_error when `root` is not a folder that can be opened.
  explicit Storage(const std::string& root);
  ~Storage();
  Storage(const Storage&) = delete;
  Storage& operator=(const Storage&) = delete;

  struct NewFile {
    int fd = -1;  // open for writing; the caller closes it
    std::string name;
  };
  // A new, empty file named after the client's file name: "000042-" + its safe form.
  // Throws std::system_error when the file cannot be created.
  NewFile create(std::string_view clientFileName);
  void remove(const std::string& name) const;
  // A stored file opened for reading, or -1 when `name` is not a safe name of a regular
  // file in the folder.
  int openForReading(std::string_view name) const;

  // The last path segment of `clientFileName` (after "/" or "\"), with every byte outside
  // [A-Za-z0-9._-] turned into "_", leading dots dropped, and the stem and extension cut
  // to a sane length; "upload" when nothing is left.
  static std::string safeName(std::string_view clientFileName);
  static bool isSafeName(std::string_view name);

 private:
  int rootFd_ = -1;
  std::atomic<unsigned> counter_{0};
};

}  // namespace velmora::receiver
