// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/draft.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Command {

namespace {

namespace fs = std::filesystem;

// Beside the target under a name that nobody else takes.
fs::path beside(fs::path const& target, char const* ending) {
    std::string name(".");
    name.append(target.filename().string()).append(".").append(std::to_string(getpid())).append(ending);
    return target.parent_path() / name;
}

// Waits until the disk has the file, or what lies below a folder.
void sync(fs::path const& path, fs::path const& target) {
    int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        throw std::system_error(errno, std::generic_category(), target.string());
    }
    int const failed = (fs::is_directory(path) ? syncfs(file) : fsync(file)) != 0 ? errno : 0;
    close(file);
    if (failed != 0) {
        throw std::system_error(failed, std::generic_category(), target.string());
    }
}

}  // namespace

Draft::Draft(fs::path target, bool mayReplace) : target_(std::move(target)), path_(beside(target_, ".part")) {
    if (target_.filename().empty()) {
        target_ = target_.parent_path();
        path_ = beside(target_, ".part");
    }
    if (!mayReplace && fs::exists(target_)) {
        throw std::runtime_error(target_.string() + ": exists already; --force replaces it");
    }
    fs::remove_all(path_);  // what a killed process of the same number has left
}

Draft::~Draft() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void Draft::publish() {
    sync(path_, target_);
    std::error_code failed;
    fs::path const former = beside(target_, ".old");
    bool const replacesFolder = fs::is_directory(target_);
    if (replacesFolder) {
        fs::rename(target_, former);
    }
    fs::rename(path_, target_, failed);
    if (failed) {
        if (replacesFolder) {
            fs::rename(former, target_);
        }
        throw std::system_error(failed, target_.string());
    }
    fs::remove_all(former, failed);
    auto const folder = target_.parent_path();
    sync(folder.empty() ? "." : folder, target_);
}

}  // namespace Quorvel::Dravik::Command
