// SPDX-License-Identifier: Apache-2.0
#include "png_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <png.h>
#include <stdexcept>
#include <unistd.h>

namespace Relief {
namespace {

// A file beside the one that is meant, removed unless it takes that one's place.
class Draft {
  public:
    explicit Draft(std::string const& target)
        : target_(target), path_(target + "." + std::to_string(getpid()) + ".part") {}
    ~Draft() {
        if (!published_) {
            std::remove(path_.c_str());
        }
    }
    Draft(Draft const&) = delete;
    Draft& operator=(Draft const&) = delete;

    char const* path() const noexcept { return path_.c_str(); }

    void publish() {
        if (std::rename(path_.c_str(), target_.c_str()) != 0) {
            throw std::runtime_error("cannot write '" + target_ + "': " + std::strerror(errno));
        }
        published_ = true;
    }

  private:
    std::string target_;
    std::string path_;
    bool published_ = false;
};

}  // namespace

void writePng(std::string const& path, Raster<Colour> const& picture) {
    static_assert(sizeof(Colour) == 3, "A row of colours is a row of PNG samples.");
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.format = PNG_FORMAT_RGB;
    image.flags = PNG_IMAGE_FLAG_FAST;  // a larger file, written in a quarter of the time
    image.width = static_cast<png_uint_32>(picture.columns());
    image.height = static_cast<png_uint_32>(picture.rows());
    Draft draft(path);
    if (png_image_write_to_file(
            &image, draft.path(), /*convert_to_8bit=*/0, picture.row(0), /*row_stride=*/0, /*colormap=*/nullptr) == 0) {
        throw std::runtime_error("cannot write '" + path + "': " + image.message);
    }
    draft.publish();
}

}  // namespace Relief
