// Stands between a program and its system (LD_PRELOAD) and spoils one call, or all from one on.
//
// KELPORA_SPOIL_AREAS=NAME=FOLDER:...   only calls on something below one of these folders count
// KELPORA_SPOIL=CALL AREA N FAULT       the N-th such call, counted from 1; "N+" for that one and all after
// it. FAULT is
//                                       an error's number; "short": half of what was asked for; "kill": the
//                                       process ends before the call, "killed": after it; "late": 300 ms
//                                       later; "skip": nothing is done, and success is told
// KELPORA_SPOIL_COUNTS=FILE             gets a line "CALL AREA NUMBER" for each call that was counted
//
// Of the calls that the program makes itself or through the toolkit; those that the C library makes inside
// are not seen.

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <string>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

enum class Fault { None, Error, Short, Kill, Killed, Late, Skip };

class Spoiler
{
public:
    Spoiler()
    {
        for (const std::string &area : split(variable("KELPORA_SPOIL_AREAS"), ':')) {
            const std::size_t equals = area.find('=');
            if (equals != std::string::npos)
                areas_.emplace_back(area.substr(0, equals), area.substr(equals + 1));
        }
        const std::vector<std::string> plan = split(variable("KELPORA_SPOIL"), ' ');
        if (plan.size() == 4) {
            what_ = plan.at(0) + ' ' + plan.at(1);
            first_ = std::atol(plan.at(2).c_str());
            repeats_ = plan.at(2).back() == '+';
            const std::string &fault = plan.at(3);
            fault_ = fault == "short"    ? Fault::Short
                     : fault == "kill"   ? Fault::Kill
                     : fault == "killed" ? Fault::Killed
                     : fault == "late"   ? Fault::Late
                     : fault == "skip"   ? Fault::Skip
                                         : Fault::Error;
            error_ = std::atoi(fault.c_str());
        }
    }
    Spoiler(const Spoiler &) = delete;
    Spoiler &operator=(const Spoiler &) = delete;
    ~Spoiler()
    {
        const std::string path = variable("KELPORA_SPOIL_COUNTS");
        std::FILE *file = path.empty() ? nullptr : std::fopen(path.c_str(), "w");
        if (file == nullptr)
            return;
        for (const auto &[what, number] : counts_)
            std::fprintf(file, "%s %ld\n", what.c_str(), number);
        std::fclose(file);
    }

    /// Counts the call; what is to be done with it.
    Fault next(const char *call, const std::string &path)
    {
        const std::string area = areaOf(path);
        if (area.empty())
            return Fault::None;
        const std::string what = std::string(call) + ' ' + area;
        const std::lock_guard<std::mutex> guard(lock_);
        const long number = ++counts_[what];
        const bool meant = what == what_ && (number == first_ || (repeats_ && number > first_));
        return meant ? fault_ : Fault::None;
    }
    [[nodiscard]] int error() const { return error_; }

private:
    static std::string variable(const char *name)
    {
        const char *value = std::getenv(name);
        return value == nullptr ? "" : value;
    }

    static std::vector<std::string> split(const std::string &text, char separator)
    {
        std::vector<std::string> parts(1);
        for (const char c : text) {
            if (c == separator)
                parts.emplace_back();
            else
                parts.back() += c;
        }
        return parts;
    }

    [[nodiscard]] std::string areaOf(const std::string &path) const
    {
        for (const auto &[name, folder] : areas_) {
            if (path == folder || path.compare(0, folder.size() + 1, folder + '/') == 0)
                return name;
        }
        return {};
    }

    std::vector<std::pair<std::string, std::string>> areas_;
    std::string what_;
    long first_ = 0;
    bool repeats_ = false;
    Fault fault_ = Fault::None;
    int error_ = 0;
    std::mutex lock_;
    std::map<std::string, long> counts_;
};

Spoiler &spoiler()
{
    static Spoiler only;
    return only;
}

std::string pathOf(int file)
{
    std::array<char, PATH_MAX> path = {};
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    const ssize_t size = ::readlink(link.c_str(), path.data(), path.size());
    return size <= 0 ? "" : std::string(path.data(), static_cast<std::size_t>(size));
}

std::string pathOf(const char *path)
{
    return path == nullptr ? "" : path;
}

std::string pathOf(int folder, const char *path)
{
    return *path == '/' || folder == AT_FDCWD ? path : pathOf(folder) + '/' + path;
}

void kill()
{
    ::raise(SIGKILL);
}

/// Makes the call `name`, spoiled if it is its turn. `shorten` halves what it asks for.
template <typename Result, typename Call, typename Shorten>
Result spoiled(const char *name, const std::string &path, Result failed, const Call &call,
               const Shorten &shorten)
{
    const int before = errno;
    const Fault fault = spoiler().next(name, path);
    errno = before;
    switch (fault) {
    case Fault::None:
        return call();
    case Fault::Error:
        errno = spoiler().error();
        return failed;
    case Fault::Short:
        shorten();
        return call();
    case Fault::Kill:
        kill();
        return failed;
    case Fault::Killed: {
        const Result result = call();
        kill();
        return result;
    }
    case Fault::Skip:
        return {};
    case Fault::Late:
        ::usleep(300'000);
        return call();
    }
    return failed;
}

template <typename Result, typename Call>
Result spoiled(const char *name, const std::string &path, Result failed, const Call &call)
{
    return spoiled(name, path, failed, call, [] {});
}

/// The function of that name which would be called without this library.
template <typename Function>
Function *real(Function * /*same*/, const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

} // namespace

#define REAL(name) static auto *const real_##name = real(&::name, #name)

extern "C" {

int open(const char *path, int flags, ...)
{
    REAL(open);
    va_list more;
    va_start(more, flags);
    const mode_t mode = va_arg(more, mode_t);
    va_end(more);
    return spoiled("open", pathOf(path), -1, [=] { return real_open(path, flags, mode); });
}

int open64(const char *path, int flags, ...)
{
    REAL(open64);
    va_list more;
    va_start(more, flags);
    const mode_t mode = va_arg(more, mode_t);
    va_end(more);
    return spoiled("open", pathOf(path), -1, [=] { return real_open64(path, flags, mode); });
}

int openat(int folder, const char *path, int flags, ...)
{
    REAL(openat);
    va_list more;
    va_start(more, flags);
    const mode_t mode = va_arg(more, mode_t);
    va_end(more);
    return spoiled("open", pathOf(folder, path), -1, [=] { return real_openat(folder, path, flags, mode); });
}

int openat64(int folder, const char *path, int flags, ...)
{
    REAL(openat64);
    va_list more;
    va_start(more, flags);
    const mode_t mode = va_arg(more, mode_t);
    va_end(more);
    return spoiled("open", pathOf(folder, path), -1,
                   [=] { return real_openat64(folder, path, flags, mode); });
}

int close(int file)
{
    REAL(close);
    // A descriptor is gone however its close ends.
    const std::string path = pathOf(file);
    const int result = real_close(file);
    return spoiled("close", path, -1, [=] { return result; });
}

ssize_t read(int file, void *bytes, size_t size)
{
    REAL(read);
    return spoiled(
        "read", pathOf(file), ssize_t{-1}, [&] { return real_read(file, bytes, size); },
        [&] { size = (size + 1) / 2; });
}

ssize_t write(int file, const void *bytes, size_t size)
{
    REAL(write);
    return spoiled(
        "write", pathOf(file), ssize_t{-1}, [&] { return real_write(file, bytes, size); },
        [&] { size = (size + 1) / 2; });
}

ssize_t copy_file_range(int from, off64_t *begin, int to, off64_t *at, size_t size, unsigned flags)
{
    REAL(copy_file_range);
    return spoiled(
        "copy", pathOf(to), ssize_t{-1},
        [&] { return real_copy_file_range(from, begin, to, at, size, flags); },
        [&] { size = (size + 1) / 2; });
}

ssize_t sendfile(int to, int from, off_t *begin, size_t size)
{
    REAL(sendfile);
    return spoiled(
        "sendfile", pathOf(to), ssize_t{-1}, [&] { return real_sendfile(to, from, begin, size); },
        [&] { size = (size + 1) / 2; });
}

ssize_t sendfile64(int to, int from, off64_t *begin, size_t size)
{
    REAL(sendfile64);
    return spoiled(
        "sendfile", pathOf(to), ssize_t{-1}, [&] { return real_sendfile64(to, from, begin, size); },
        [&] { size = (size + 1) / 2; });
}

off_t lseek(int file, off_t offset, int whence)
{
    REAL(lseek);
    return spoiled("lseek", pathOf(file), off_t{-1}, [=] { return real_lseek(file, offset, whence); });
}

off64_t lseek64(int file, off64_t offset, int whence)
{
    REAL(lseek64);
    return spoiled("lseek", pathOf(file), off64_t{-1}, [=] { return real_lseek64(file, offset, whence); });
}

int ftruncate64(int file, off64_t size)
{
    REAL(ftruncate64);
    return spoiled("ftruncate", pathOf(file), -1, [=] { return real_ftruncate64(file, size); });
}

int fsync(int file)
{
    REAL(fsync);
    return spoiled("fsync", pathOf(file), -1, [=] { return real_fsync(file); });
}

int fdatasync(int file)
{
    REAL(fdatasync);
    return spoiled("fdatasync", pathOf(file), -1, [=] { return real_fdatasync(file); });
}

int sync_file_range(int file, off64_t begin, off64_t size, unsigned flags)
{
    REAL(sync_file_range);
    return spoiled("sync_file_range", pathOf(file), -1,
                   [=] { return real_sync_file_range(file, begin, size, flags); });
}

int syncfs(int file)
{
    REAL(syncfs);
    return spoiled("syncfs", pathOf(file), -1, [=] { return real_syncfs(file); });
}

int renameat2(int fromFolder, const char *from, int toFolder, const char *to, unsigned flags)
{
    REAL(renameat2);
    return spoiled("rename", pathOf(toFolder, to), -1,
                   [=] { return real_renameat2(fromFolder, from, toFolder, to, flags); });
}

int rename(const char *from, const char *to)
{
    REAL(rename);
    return spoiled("rename", pathOf(to), -1, [=] { return real_rename(from, to); });
}

int link(const char *from, const char *to)
{
    REAL(link);
    return spoiled("link", pathOf(to), -1, [=] { return real_link(from, to); });
}

int unlink(const char *path)
{
    REAL(unlink);
    return spoiled("unlink", pathOf(path), -1, [=] { return real_unlink(path); });
}

int unlinkat(int folder, const char *path, int flags)
{
    REAL(unlinkat);
    return spoiled("unlink", pathOf(folder, path), -1, [=] { return real_unlinkat(folder, path, flags); });
}

int remove(const char *path)
{
    REAL(remove);
    return spoiled("unlink", pathOf(path), -1, [=] { return real_remove(path); });
}

int rmdir(const char *path)
{
    REAL(rmdir);
    return spoiled("rmdir", pathOf(path), -1, [=] { return real_rmdir(path); });
}

int mkdir(const char *path, mode_t mode)
{
    REAL(mkdir);
    return spoiled("mkdir", pathOf(path), -1, [=] { return real_mkdir(path, mode); });
}

int access(const char *path, int mode)
{
    REAL(access);
    return spoiled("access", pathOf(path), -1, [=] { return real_access(path, mode); });
}

int statx(int folder, const char *path, int flags, unsigned mask, struct statx *status)
{
    REAL(statx);
    return spoiled("stat", pathOf(folder, path), -1,
                   [=] { return real_statx(folder, path, flags, mask, status); });
}

int stat64(const char *path, struct stat64 *status)
{
    REAL(stat64);
    return spoiled("stat", pathOf(path), -1, [=] { return real_stat64(path, status); });
}

int lstat64(const char *path, struct stat64 *status)
{
    REAL(lstat64);
    return spoiled("stat", pathOf(path), -1, [=] { return real_lstat64(path, status); });
}

int stat(const char *path, struct stat *status)
{
    REAL(stat);
    return spoiled("stat", pathOf(path), -1, [=] { return real_stat(path, status); });
}

int lstat(const char *path, struct stat *status)
{
    REAL(lstat);
    return spoiled("stat", pathOf(path), -1, [=] { return real_lstat(path, status); });
}

int fstatat(int folder, const char *path, struct stat *status, int flags)
{
    REAL(fstatat);
    return spoiled("stat", pathOf(folder, path), -1,
                   [=] { return real_fstatat(folder, path, status, flags); });
}

int fstat(int file, struct stat *status)
{
    REAL(fstat);
    return spoiled("fstat", pathOf(file), -1, [=] { return real_fstat(file, status); });
}

int fstat64(int file, struct stat64 *status)
{
    REAL(fstat64);
    return spoiled("fstat", pathOf(file), -1, [=] { return real_fstat64(file, status); });
}

int fstatvfs(int file, struct statvfs *status)
{
    REAL(fstatvfs);
    return spoiled("fstatvfs", pathOf(file), -1, [=] { return real_fstatvfs(file, status); });
}

int fchmod(int file, mode_t mode)
{
    REAL(fchmod);
    return spoiled("fchmod", pathOf(file), -1, [=] { return real_fchmod(file, mode); });
}

int futimens(int file, const struct timespec times[2])
{
    REAL(futimens);
    return spoiled("futimens", pathOf(file), -1, [=] { return real_futimens(file, times); });
}

DIR *opendir(const char *path)
{
    REAL(opendir);
    return spoiled("opendir", pathOf(path), static_cast<DIR *>(nullptr), [=] { return real_opendir(path); });
}

struct dirent *readdir(DIR *folder)
{
    REAL(readdir);
    return spoiled("readdir", pathOf(::dirfd(folder)), static_cast<struct dirent *>(nullptr),
                   [=] { return real_readdir(folder); });
}

struct dirent64 *readdir64(DIR *folder)
{
    REAL(readdir64);
    return spoiled("readdir", pathOf(::dirfd(folder)), static_cast<struct dirent64 *>(nullptr),
                   [=] { return real_readdir64(folder); });
}
}
