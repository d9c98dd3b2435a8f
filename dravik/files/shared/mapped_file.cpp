// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/shared/mapped_file.h"

#include "dravik/adt/exceptions/cloned_exception.h"
#include "dravik/adt/exceptions/system_exception.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Files {

namespace {

[[noreturn]] void throwErrno(std::filesystem::path const& path, char const* what) {
    throw std::system_error(errno, std::generic_category(), path.string() + ": " + what);
}

// Closes what it holds.
class Descriptor {
  public:
    Descriptor(std::filesystem::path const& path, int flags) : number_(::open(path.c_str(), flags | O_CLOEXEC, 0666)) {
        if (number_ < 0) {
            throwErrno(path, "cannot be opened");
        }
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor() { ::close(number_); }

    int number() const noexcept { return number_; }

  private:
    int number_;
};

// What a fault brings at most: the system maps what it has around the page, up to a large page.
constexpr std::int64_t kBytesPerFault = std::int64_t{2} << 20;

std::atomic<std::int64_t> mappedByteBudget{std::int64_t{256} << 20};

// Page faults that this thread has had and that needed no disk; those that did are followed by one that does not.
std::int64_t faultsSoFar() noexcept {
    rusage usage{};
    return ::getrusage(RUSAGE_THREAD, &usage) == 0 ? usage.ru_minflt + usage.ru_majflt : 0;
}

thread_local std::int64_t countedFaults = 0;

}  // namespace

void setMappedByteBudget(std::int64_t bytes) noexcept {
    mappedByteBudget = bytes;
}

MappedFile::MappedFile(std::filesystem::path path, bool writable) : path_(std::move(path)) {
    Descriptor const file(path_, writable ? O_RDWR : O_RDONLY);
    struct stat status {};
    if (::fstat(file.number(), &status) != 0) {
        throwErrno(path_, "cannot be looked at");
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::system_error(EINVAL, std::generic_category(), path_.string() + ": is no file");
    }
    byteSize_ = status.st_size;
    if (byteSize_ == 0) {
        return;
    }
    void* const memory = ::mmap(
        nullptr, static_cast<std::size_t>(byteSize_), writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED,
        file.number(), 0);
    if (memory == MAP_FAILED) {
        throwErrno(path_, "cannot be mapped");
    }
    data_ = static_cast<char*>(memory);
}

MappedFile::~MappedFile() {
    if (data_ != nullptr) {
        ::munmap(data_, static_cast<std::size_t>(byteSize_));
    }
}

void MappedFile::access(std::function<void()> const& act) const {
    auto const call = [](void* function) {
        (*static_cast<std::function<void()> const*>(function))();
        return 0;
    };
    countedFaults = byteSize_ > mappedByteBudget ? faultsSoFar() : 0;  // not what others have had
    Adt::ICloneableException::ConstPtr failure;
    Adt::Exceptions::ClonedException::runAndCatchException(
        call, const_cast<void*>(static_cast<void const*>(&act)), &failure);
    settle();
    if (failure == nullptr) {
        return;
    }
    if (dynamic_cast<Adt::Exceptions::SystemException const*>(failure.get()) != nullptr) {
        throw std::system_error(
            EIO, std::generic_category(),
            path_.string() + ": has become shorter than it was, or its disk is full or has failed");
    }
    failure->throwClone();
}

// The pages of a shared mapping are the system's, written ones as well: nothing is lost.
void MappedFile::settle() const noexcept {
    if (byteSize_ <= mappedByteBudget) {
        return;
    }
    std::int64_t const faults = faultsSoFar();
    std::int64_t const touched = (faults - std::exchange(countedFaults, faults)) * kBytesPerFault;
    if (touched > 0 && (touched_ += touched) > mappedByteBudget) {
        touched_ = 0;
        ::madvise(data_, static_cast<std::size_t>(byteSize_), MADV_DONTNEED);
    }
}

void MappedFile::flush() const {
    if (data_ != nullptr && ::msync(data_, static_cast<std::size_t>(byteSize_), MS_SYNC) != 0) {
        throwErrno(path_, "cannot be written");
    }
}

void createFile(std::filesystem::path const& path, std::int64_t byteSize) {
    Descriptor const file(path, O_RDWR | O_CREAT | O_EXCL);
    if (::ftruncate(file.number(), byteSize) != 0) {
        int const error = errno;
        ::unlink(path.c_str());
        errno = error;
        throwErrno(path, "cannot be given its size");
    }
}

}  // namespace Quorvel::Dravik::Files
