// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/netcdf/detail/classic_header.h"

#include <string>
#include <vector>

namespace Quorvel::Dravik::Files::Detail {

namespace {

// Walks the header as the format's grammar has it: magic numrecs dim_list gatt_list var_list.
class Header {
  public:
    explicit Header(std::string_view bytes) : bytes_(bytes), version_(bytes.size() < 4 ? '\0' : bytes[3]) {}

    bool isClassic() const { return bytes_.substr(0, 3) == "CDF" && (version_ == 1 || version_ == 2 || version_ == 5); }

    /// Calls visit(name, begin, hasRecords) for each variable; whether the header is sound.
    template <class Visit>
    bool walk(Visit const& visit) {
        at_ = 4;
        number(version_ == 5 ? 8 : 4);  // records; all bits set while they are being written
        std::vector<bool> isRecord;
        for (std::int64_t left = list(kDimensions); left > 0 && !isBad_; --left) {
            name();
            isRecord.push_back(count() == 0);
        }
        skipAttributes();
        for (std::int64_t left = list(kVariables); left > 0 && !isBad_; --left) {
            auto const itsName = name();
            bool hasRecords = false;
            std::int64_t axes = count();
            isBad_ = isBad_ || axes > kMostAxes;
            for (; axes > 0 && !isBad_; --axes) {
                auto const axis = static_cast<std::uint64_t>(count());
                isBad_ = isBad_ || axis >= isRecord.size();
                hasRecords = hasRecords || (!isBad_ && isRecord[axis]);
            }
            skipAttributes();
            type();
            number(version_ == 5 ? 8 : 4);  // bytes, which writers fill in in several ways
            std::int64_t const begin = number(version_ == 1 ? 4 : 8);
            isBad_ = isBad_ || begin < 0 || begin > static_cast<std::int64_t>(bytes_.size());
            if (!isBad_) {
                visit(itsName, begin, hasRecords);
            }
        }
        return !isBad_;
    }

  private:
    static constexpr std::int64_t kDimensions = 10, kVariables = 11, kAttributes = 12;  // tags of lists
    static constexpr std::int64_t kMostAxes = 1024;

    std::int64_t number(int bytes) {
        if (isBad_ || bytes_.size() - at_ < static_cast<std::size_t>(bytes)) {
            isBad_ = true;
            return 0;
        }
        std::uint64_t value = 0;
        for (int k = 0; k < bytes; ++k) {
            value = value << 8 | static_cast<unsigned char>(bytes_[at_++]);
        }
        return static_cast<std::int64_t>(value);
    }
    // Of what has at least a byte each in the file.
    std::int64_t count() {
        std::int64_t const counted = number(version_ == 5 ? 8 : 4);
        isBad_ = isBad_ || counted < 0;
        return isBad_ ? 0 : counted;
    }
    std::int64_t list(std::int64_t tag) {
        std::int64_t const itsTag = number(4), elements = count();
        isBad_ = isBad_ || (itsTag != tag && (itsTag != 0 || elements != 0)) ||
                 elements > static_cast<std::int64_t>(bytes_.size());
        return isBad_ ? 0 : elements;
    }
    void skip(std::int64_t bytes) {
        std::uint64_t const padded = (static_cast<std::uint64_t>(bytes) + 3) / 4 * 4;
        isBad_ = isBad_ || bytes < 0 || bytes_.size() - at_ < padded;
        at_ += isBad_ ? 0 : padded;
    }
    std::string_view name() {
        constexpr std::int64_t kLongest = 256;
        std::int64_t const length = count();
        auto const begin = at_;
        isBad_ = isBad_ || length < 1 || length > kLongest;
        skip(length);
        auto const text = isBad_ ? std::string_view() : bytes_.substr(begin, static_cast<std::size_t>(length));
        isBad_ = isBad_ || text.find('\0') != std::string_view::npos;
        return text;
    }
    // Bytes of a number of the type that comes.
    int type() {
        constexpr int kBytes[] = {0, 1, 1, 2, 4, 4, 8, 1, 2, 4, 8, 8};
        std::int64_t const itsType = number(4);
        isBad_ = isBad_ || itsType < 1 || itsType > (version_ == 5 ? 11 : 6);
        return isBad_ ? 0 : kBytes[itsType];
    }
    void skipAttributes() {
        for (std::int64_t left = list(kAttributes); left > 0 && !isBad_; --left) {
            name();
            int const bytes = type();
            std::int64_t const values = count();
            isBad_ = isBad_ || values > static_cast<std::int64_t>(bytes_.size());
            skip(isBad_ ? 0 : values * bytes);
        }
    }

    std::string_view bytes_;
    char version_;
    std::size_t at_ = 0;
    bool isBad_ = false;
};

}  // namespace

std::optional<std::int64_t> classicVariableAt(std::string_view header, std::string_view variable) {
    std::optional<std::int64_t> place;
    Header walked(header);
    if (walked.isClassic()) {
        walked.walk([&](std::string_view name, std::int64_t begin, bool hasRecords) {
            if (name == variable && !hasRecords) {
                place = begin;
            }
        });
    }
    return place;
}

bool isSoundIfClassic(std::string_view file) {
    Header header(file);
    return !header.isClassic() || header.walk([](std::string_view, std::int64_t, bool) {});
}

}  // namespace Quorvel::Dravik::Files::Detail
