#include "tools/nxctl_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "tools/cli.h"

namespace nxctl {
namespace {

struct Closer {
    void operator()(FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, Closer>;

[[noreturn]] void fail(const char *act, const std::string &path) {
    throw tools::Failure(tools::cannot(act, path));
}

}  // namespace

std::string whole_file(const std::string &path) {
    const bool is_input = path == "-";
    errno = 0;
    const File opened(is_input ? nullptr : std::fopen(path.c_str(), "rbe"));
    FILE *in = is_input ? stdin : opened.get();
    if (in == nullptr) {
        fail("read", path);
    }
    std::string bytes;
    char block[16 * 1024];
    for (size_t got = 0; (got = std::fread(block, 1, sizeof block, in)) > 0;) {
        bytes.append(block, got);
    }
    if (std::ferror(in) != 0) {
        fail("read", is_input ? "standard input" : path);
    }
    return bytes;
}

void replace_file(const std::string &path, const std::string &bytes) {
    std::string beside = path + ".XXXXXX";
    errno = 0;
    const int fd = mkostemp(beside.data(), O_CLOEXEC);  // of mode 0600
    const File file(fd < 0 ? nullptr : fdopen(fd, "wb"));
    if (!file) {
        fail("write", path);
    }
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size() &&
                         std::fflush(file.get()) == 0 && fsync(fd) == 0 &&
                         rename(beside.c_str(), path.c_str()) == 0;
    if (!written) {
        const int error = errno;
        unlink(beside.c_str());
        errno = error;
        fail("write", path);
    }
}

}  // namespace nxctl
