// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/segy/segy_file.h"

#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/converters/byte_swap_converter.h"
#include "dravik/adt/core/hasher.h"
#include "dravik/files/segy/detail/survey.h"
#include "dravik/text/forms.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <segyio/segy.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Files {

using Adt::BulkView::AccessTraits;
using Adt::Converters::ByteSwapConverter;
using Detail::Survey;
using Box = Adt::OpenEndedRange<4, int>;

namespace {

constexpr int kIbmFloat = 1;

class SegyStore final : public Adt::BulkView::IBrickStore {
  public:
    SegyStore(std::unique_ptr<MappedFile> file, Survey survey, bool writable)
        : file_(std::move(file)), survey_(std::move(survey)) {
        auto const traces = static_cast<int>(survey_.traces.size());
        size_ = survey_.isLine
                    ? Adt::FixedVector<4, int>(traces, survey_.sampleCount, 1, 1)
                    : Adt::FixedVector<4, int>(survey_.inlines.count, survey_.crosslines.count, survey_.sampleCount, 1);
        traits_.naturalBlock = size_;
        traits_.naturalBlock[survey_.isCrosslineSorted ? 1 : 0] = survey_.isLine ? std::min(traces, 64) : 1;
        traits_.fastestAxis = survey_.isLine ? 1 : 2;
        traits_.sampleType = survey_.sampleType;
        traits_.bitSize = 8 * survey_.sampleBytes;
        traits_.concurrency = AccessTraits::Concurrency::PerClone;
        traits_.writable = writable;
        if (survey_.sampleBytes > 1) {
            swap_.emplace(*survey_.sampleType);
        }
    }

    Adt::FixedVector<4, int> size() const override { return size_; }
    AccessTraits traits() const override { return traits_; }
    bool servesParts() const override { return true; }
    void flush() override { file_->flush(); }

    bool hasSamples(Box const& box) const override {
        bool has = false;
        forEachTrace(box, [&](std::int64_t place, std::int64_t /*at*/) { has = has || place != Survey::kNoTrace; });
        return has;
    }

    // First the bytes of all traces, then one conversion of the whole.
    void read(Box const& box, void* samples) const override {
        auto* const to = static_cast<char*>(samples);
        std::int64_t const bytes = rowBytes(box);
        file_->access([&] {
            forEachTrace(box, [&](std::int64_t place, std::int64_t at) {
                file_->settleAfter(at);
                if (place != Survey::kNoTrace) {
                    std::memcpy(
                        to + at * bytes, file_->data() + place + firstByte(box), static_cast<std::size_t>(bytes));
                }
            });
        });
        toNative(to, box.pointCount());
        forEachTrace(box, [&](std::int64_t place, std::int64_t at) {
            if (place == Survey::kNoTrace) {
                fillMissing(to + at * bytes, static_cast<std::size_t>(bytes));
            }
        });
    }

    void write(Box const& box, void const* samples) override {
        if (!traits_.writable) {
            return IBrickStore::write(box, samples);
        }
        std::int64_t const bytes = rowBytes(box);
        std::vector<char> stored(static_cast<std::size_t>(box.pointCount() * survey_.sampleBytes));
        std::memcpy(stored.data(), samples, stored.size());
        requireTraces(box, stored, bytes);
        fromNative(stored.data(), box.pointCount());
        file_->access([&] {
            forEachTrace(box, [&](std::int64_t place, std::int64_t at) {
                file_->settleAfter(at);
                if (place != Survey::kNoTrace) {
                    std::memcpy(
                        file_->data() + place + firstByte(box), stored.data() + at * bytes,
                        static_cast<std::size_t>(bytes));
                }
            });
        });
    }

  private:
    int sampleAxis() const { return survey_.isLine ? 1 : 2; }
    std::int64_t rowBytes(Box const& box) const { return box.size(sampleAxis()) * survey_.sampleBytes; }
    std::int64_t firstByte(Box const& box) const { return std::int64_t{box.min[sampleAxis()]} * survey_.sampleBytes; }

    // Calls act(place in the file, number of the trace in the box).
    template <class Act>
    void forEachTrace(Box const& box, Act act) const {
        std::int64_t at = 0;
        int const crosslines = survey_.isLine ? 1 : size_[1];
        int const firstCrossline = survey_.isLine ? 0 : box.min[1], endCrossline = survey_.isLine ? 1 : box.max[1];
        for (int i = box.min[0]; i < box.max[0]; ++i) {
            for (int j = firstCrossline; j < endCrossline; ++j, ++at) {
                act(survey_.traces[static_cast<std::size_t>(std::int64_t{i} * crosslines + j)], at);
            }
        }
    }

    bool isForeign() const { return survey_.isLittleEndian != (std::endian::native == std::endian::little); }
    void swapBytes(char* samples, std::int64_t count) const {
        constexpr std::int64_t kPiece = 1 << 30;
        for (std::int64_t done = 0; swap_ && done < count; done += kPiece) {
            char* const piece = samples + done * survey_.sampleBytes;
            swap_->convertContiguous(piece, 0, piece, 0, static_cast<int>(std::min(kPiece, count - done)));
        }
    }
    void toNative(char* samples, std::int64_t count) const {
        if (survey_.formatCode != kIbmFloat) {
            isForeign() ? swapBytes(samples, count) : void();
            return;
        }
        survey_.isLittleEndian ? swapBytes(samples, count) : void();
        segy_to_native(SEGY_IBM_FLOAT_4_BYTE, count, samples);
    }
    void fromNative(char* samples, std::int64_t count) const {
        if (survey_.formatCode != kIbmFloat) {
            isForeign() ? swapBytes(samples, count) : void();
            return;
        }
        segy_from_native(SEGY_IBM_FLOAT_4_BYTE, count, samples);
        survey_.isLittleEndian ? swapBytes(samples, count) : void();
    }

    void fillMissing(char* samples, std::size_t bytes) const {
        auto const fill = [&](auto none) {
            for (std::size_t at = 0; at < bytes; at += sizeof none) {
                std::memcpy(samples + at, &none, sizeof none);
            }
        };
        if (*survey_.sampleType == typeid(float)) {
            fill(std::numeric_limits<float>::quiet_NaN());
        } else if (*survey_.sampleType == typeid(double)) {
            fill(std::numeric_limits<double>::quiet_NaN());
        } else {
            fill(char{0});
        }
    }

    // Samples for which there is no trace may be missing ones alone: others would be lost.
    void requireTraces(Box const& box, std::vector<char> const& samples, std::int64_t bytes) const {
        std::vector<char> missing(static_cast<std::size_t>(bytes));
        fillMissing(missing.data(), missing.size());
        forEachTrace(box, [&](std::int64_t place, std::int64_t at) {
            bool const isLost = place == Survey::kNoTrace &&
                                std::memcmp(samples.data() + at * bytes, missing.data(), missing.size()) != 0;
            if (isLost) {
                std::int64_t const crosslines = box.size(1);
                throw std::runtime_error(
                    file_->path().string() + ": has no trace at inline " +
                    std::to_string(survey_.inlines.first + (box.min[0] + at / crosslines) * survey_.inlines.step) +
                    ", crossline " +
                    std::to_string(
                        survey_.crosslines.first + (box.min[1] + at % crosslines) * survey_.crosslines.step));
            }
        });
    }

    std::unique_ptr<MappedFile> file_;
    Survey survey_;
    Adt::FixedVector<4, int> size_;
    AccessTraits traits_;
    std::optional<ByteSwapConverter> swap_;
};

Adt::BulkView::DataAxis linesOf(char const* name, Detail::LineNumbers const& lines) {
    Adt::BulkView::DataAxis axis{name, "", {}};
    for (int k = 0; k < lines.count; ++k) {
        axis.coordinates.push_back(lines.first + double{static_cast<double>(k)} * lines.step);
    }
    return axis;
}

Adt::BulkView::DataInfo infoOf(Survey const& survey) {
    Adt::BulkView::DataInfo info;
    info.axisCount = survey.isLine ? 2 : 3;
    if (survey.isLine) {
        info.axes[0] = {"trace", "", survey.traceNumbers};
    } else {
        info.axes[0] = linesOf("inline", survey.inlines);
        info.axes[1] = linesOf("crossline", survey.crosslines);
    }
    auto& time = info.axes[static_cast<std::size_t>(info.axisCount - 1)];
    time = {"time", "ms", {}};
    for (int k = 0; k < survey.sampleCount; ++k) {
        time.coordinates.push_back(survey.delay + k * survey.interval);
    }
    info.valueName = "amplitude";
    return info;
}

boost::shared_ptr<Adt::BulkDef::SourceDef const> recognise(
    std::filesystem::path const& path, std::string const& variable) {
    if (!std::filesystem::is_regular_file(path) || !Survey::looksLike(MappedFile(path, /*writable=*/false))) {
        return nullptr;
    }
    if (!variable.empty()) {
        throw std::runtime_error(path.string() + ": no variable \"" + variable + "\"; a SEG-Y file has but one");
    }
    return boost::make_shared<SegyFileDef const>(path);
}

// At load, so that whoever links or loads this library can open its files.
[[maybe_unused]] bool const kIsRegistered = [] {
    registerSegy(Adt::BulkView::Openers::standard());
    Text::Forms::standard().add<SegyFileDef>(
        "SegyFile",
        [](SegyFileDef const& file, Text::DefinitionWriter&) {
            Text::Node node;
            node.set("path", file.path().native()).set("writable", file.isWritable());
            return node;
        },
        [](Text::Node const& node, Text::DefinitionReader&) {
            auto const* const writable = node.find("writable");
            return boost::make_shared<SegyFileDef const>(
                node.at("path").as<std::string>(), writable != nullptr && writable->as<bool>());
        });
    return true;
}();

void put(char* header, std::int64_t at, std::int64_t bytes, int value) {
    for (std::int64_t k = bytes - 1; k >= 0; --k, value >>= 8) {
        header[at + k] = static_cast<char>(value & 0xFF);
    }
}

}  // namespace

SegyFileDef::SegyFileDef(std::filesystem::path path, bool writable) : path_(std::move(path)), writable_(writable) {}

int SegyFileDef::getHashCode() const {
    return Adt::Hasher(47)(path_.native());
}

void SegyFileDef::print(std::ostream& out) const {
    out << "SegyFileDef(" << path_ << ")";
}

bool SegyFileDef::compare(Adt::BulkDef::SourceDef const& other) const {
    auto const* const file = dynamic_cast<SegyFileDef const*>(&other);
    return file != nullptr && path_.native() == file->path_.native() && writable_ == file->writable_;
}

std::unique_ptr<Adt::BulkDef::SourceDef> SegyFileDef::makeClone() const {
    return std::make_unique<SegyFileDef>(path_, writable_);
}

SegyVolume openSegyVolume(SegyFileDef const& file) {
    auto mapped = std::make_unique<MappedFile>(file.path(), file.isWritable());
    auto survey = Survey::read(*mapped);
    SegyVolume opened;
    opened.info = infoOf(survey);
    opened.store = std::make_shared<SegyStore>(std::move(mapped), std::move(survey), file.isWritable());
    return opened;
}

Adt::BulkView::OpenedData openSegy(SegyFileDef const& file, Adt::BulkView::Openers const& openers) {
    auto opened = openSegyVolume(file);
    return {Adt::BulkView::StoreAccessor::Make(std::move(opened.store), openers.pool()), std::move(opened.info)};
}

void createSegy(std::filesystem::path const& path, SegyLayout const& layout) {
    auto const areLines = [](SegyLayout::Lines const& lines) {
        return lines.count > 0 && lines.step > 0 &&
               (std::int64_t{lines.count} - 1) * lines.step <= INT_MAX - std::int64_t{lines.first};
    };
    bool const fits = areLines(layout.inlines) && areLines(layout.crosslines) && layout.sampleCount > 0 &&
                      layout.sampleCount <= 0xFFFF && layout.intervalMicroseconds >= 0 &&
                      layout.intervalMicroseconds <= 0xFFFF &&
                      std::int64_t{layout.inlines.count} * layout.crosslines.count <= INT_MAX;
    if (!fits) {
        throw std::invalid_argument(
            "[SegyLayout] Invalid argument: lines are positive in step and count, samples 1 to 65535 per trace, "
            "numbers of lines and traces below 2^31.");
    }
    int const bytes = layout.format == SegyLayout::Format::Int16  ? 2
                      : layout.format == SegyLayout::Format::Int8 ? 1
                                                                  : 4;
    std::int64_t const first = Detail::kTextBytes + Detail::kBinaryBytes;
    std::int64_t const traceBytes = Detail::kTraceHeaderBytes + std::int64_t{layout.sampleCount} * bytes;
    createFile(path, first + std::int64_t{layout.inlines.count} * layout.crosslines.count * traceBytes);
    MappedFile const file(path, /*writable=*/true);
    file.access([&] {
        std::memset(file.data(), 0x40, static_cast<std::size_t>(Detail::kTextBytes));  // blanks
        for (int line = 0; line < 40; ++line) {
            file.data()[line * 80] = '\xC3';
        }
        char* const header = file.data() + Detail::kTextBytes;
        put(header, Detail::kInterval, 2, layout.intervalMicroseconds);
        put(header, Detail::kSampleCount, 2, layout.sampleCount);
        put(header, Detail::kFormat, 2, static_cast<int>(layout.format));
        char* trace = file.data() + first;
        for (int i = 0; i < layout.inlines.count; ++i) {
            for (int j = 0; j < layout.crosslines.count; ++j, trace += traceBytes) {
                put(trace, Detail::kInlineNumber, 4, layout.inlines.first + i * layout.inlines.step);
                put(trace, Detail::kCrosslineNumber, 4, layout.crosslines.first + j * layout.crosslines.step);
                put(trace, Detail::kTraceSamples, 2, layout.sampleCount);
            }
        }
    });
    file.flush();
}

void registerSegy(Adt::BulkView::Openers& openers) {
    openers.addSource<SegyFileDef>(openSegy);
    openers.addFormat("SEG-Y", recognise);
}

}  // namespace Quorvel::Dravik::Files
