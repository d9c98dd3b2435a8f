// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/zarr/detail/chunk_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <random>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Files::Detail {

namespace {

[[noreturn]] void throwErrno(std::filesystem::path const& path, char const* what, int error = errno) {
    throw std::system_error(error, std::generic_category(), path.string() + ": " + what);
}

// Closes what it holds.
class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }

    int number() const noexcept { return number_; }
    // False where the close fails, as it does on a network's disk that is full.
    bool close() noexcept { return ::close(std::exchange(number_, -1)) == 0; }

  private:
    int number_;
};

// A name that no other thread, process or machine takes.
std::filesystem::path besides(std::filesystem::path const& path) {
    std::random_device random;
    auto const number = std::uint64_t{random()} << 32 | random();
    auto name = path;
    name += '.';
    name += std::to_string(number);
    return name += ".partial";
}

bool writeAll(int file, std::span<char const> bytes) {
    while (!bytes.empty()) {
        auto const done = ::write(file, bytes.data(), bytes.size());
        if (done < 0 && errno != EINTR) {
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(done < 0 ? 0 : done));
    }
    return true;
}

}  // namespace

bool readWhole(std::filesystem::path const& path, std::string& bytes) {
    // Not blocking, so that a pipe of that name stops nobody.
    Descriptor const file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.number() < 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            return false;
        }
        throwErrno(path, "cannot be opened");
    }
    struct stat status {};
    if (::fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throwErrno(path, "is no file", EINVAL);
    }
    bytes.resize(static_cast<std::size_t>(status.st_size));
    for (std::size_t done = 0; done < bytes.size();) {
        auto const now = ::read(file.number(), bytes.data() + done, bytes.size() - done);
        if (now == 0) {
            bytes.resize(done);
        } else if (now < 0 && errno != EINTR) {
            throwErrno(path, "cannot be read");
        }
        done += static_cast<std::size_t>(now < 0 ? 0 : now);
    }
    return true;
}

void replaceWhole(std::filesystem::path const& path, std::span<char const> bytes) {
    auto const partial = besides(path);
    auto const open = [&] { return ::open(partial.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); };
    int number = open();
    if (number < 0 && errno == ENOENT) {
        std::filesystem::create_directories(path.parent_path());
        number = open();
    }
    Descriptor file(number);
    if (file.number() < 0) {
        throwErrno(partial, "cannot be made");
    }
    if (!writeAll(file.number(), bytes) || !file.close() || ::rename(partial.c_str(), path.c_str()) != 0) {
        int const error = errno;
        ::unlink(partial.c_str());
        throwErrno(path, "cannot be written", error);
    }
}

void makeLasting(std::filesystem::path const& path) {
    Descriptor const file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.number() < 0 || ::fsync(file.number()) != 0) {
        throwErrno(path, "cannot be written");
    }
}

}  // namespace Quorvel::Dravik::Files::Detail
