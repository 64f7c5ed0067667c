/**
 * Files of a device folder: whole reads, atomic replacement, local sockets. What is
 * made here is its owner's alone, since pass phrases stand in it.
 */
#ifndef VIRTUAL_FOLDER_FILES_H
#define VIRTUAL_FOLDER_FILES_H

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace vap {

/** A descriptor that is closed with its owner. */
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept;
    ~Descriptor();

    int get() const { return fd_; }
    int release();

  private:
    int fd_;
};

/** The whole file; nothing when it cannot be read. */
std::optional<std::string> read_file(const std::filesystem::path &path);

/** What a replaced file outlives: a crash of the process, or of the machine too,
 *  which takes some milliseconds. */
enum class Lasting { process, machine };

/** Modes of what is new in a device folder. */
constexpr mode_t private_file = 0600;
constexpr mode_t private_folder = 0700;

/** Replaces a file so that a crash at any moment leaves the old or the new one,
 *  whole. It keeps its owner and its mode; a new one gets `mode`, less the process's
 *  mask. False: the old one still stands, errno says why. */
bool replace_file(const std::filesystem::path &path, std::string_view text,
                  Lasting lasting = Lasting::process, mode_t mode = private_file);

/** Makes a folder and those above it that are missing, for their owner alone. False:
 *  errno says why. */
bool make_folders(const std::filesystem::path &folder);

/** Takes the access to a folder from all other users, which an older version or a
 *  copy has given them, with a line on standard error. Its group keeps its own. */
void close_to_others(const std::filesystem::path &folder);

/** Writes all bytes; false on the first error, errno says why. */
bool write_all(int fd, std::string_view bytes);

/** Tells one state of a file from another with one `stat`. */
struct FileStamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    int64_t changed_ns = 0;
    bool operator==(const FileStamp &) const = default;
};
FileStamp file_stamp(const std::filesystem::path &path);

/** Address of a local socket at a path of any length, which would not fit into an
 *  address: the way leads through a descriptor, so the address holds only while
 *  this record lives. */
class LocalAddress {
  public:
    explicit LocalAddress(const std::filesystem::path &file);
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address_); }
    socklen_t length() const { return sizeof address_; }

  private:
    Descriptor folder_;
    sockaddr_un address_{};
};

}  // namespace vap

#endif
