// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/source/bulk_file_def.h"

#include "dravik/adt/bulkdef/detail/print.h"
#include "dravik/adt/core/hasher.h"

#include <algorithm>
#include <map>

namespace Quorvel::Dravik::Adt::BulkDef::Source {

namespace {

using FormatsByName = std::map<std::string, BulkFileDef::FileFormat>;

// Never destroyed: statics of the program may ask for names until the very end.
FormatsByName const& formatsByName() {
    static FormatsByName const& formats = *new FormatsByName{
        {"FILEFORMAT_UNKNOWN", BulkFileDef::FILEFORMAT_UNKNOWN},
        {"FILEFORMAT_OTHER", BulkFileDef::FILEFORMAT_OTHER},
        {"FILEFORMAT_BRANTEL", BulkFileDef::FILEFORMAT_BRANTEL},
        {"FILEFORMAT_FOLMAR", BulkFileDef::FILEFORMAT_FOLMAR},
        {"FILEFORMAT_QUENDA", BulkFileDef::FILEFORMAT_QUENDA},
        {"FILEFORMAT_VIRSET", BulkFileDef::FILEFORMAT_VIRSET},
        {"FILEFORMAT_HALDOR", BulkFileDef::FILEFORMAT_HALDOR},
        {"FILEFORMAT_TORVAN_A", BulkFileDef::FILEFORMAT_TORVAN_A},
        {"FILEFORMAT_TORVAN_B", BulkFileDef::FILEFORMAT_TORVAN_B},
        {"FILEFORMAT_SPINDRA", BulkFileDef::FILEFORMAT_SPINDRA},
        {"FILEFORMAT_WYNDEL_A", BulkFileDef::FILEFORMAT_WYNDEL_A},
        {"FILEFORMAT_WYNDEL_B", BulkFileDef::FILEFORMAT_WYNDEL_B},
    };
    return formats;
}

// Null for a value without a name.
std::string const* nameOf(BulkFileDef::FileFormat format) {
    auto const& formats = formatsByName();
    auto const found =
        std::find_if(formats.begin(), formats.end(), [&](auto const& entry) { return entry.second == format; });
    return found == formats.end() ? nullptr : &found->first;
}

}  // namespace

std::string const& BulkFileDef::ClassName = *new std::string("BulkFileDef");

BulkFileDef::BulkFileDef(std::string const& fileName, FileFormat fileFormat)
    : fileName_(fileName), fileFormat_(fileFormat) {}

std::string const& BulkFileDef::getFileFormatString(FileFormat format) {
    static std::string const& undefined = *new std::string("FILEFORMAT_UNDEFINED");
    std::string const* const name = nameOf(format);
    return name == nullptr ? undefined : *name;
}

BulkFileDef::FileFormat BulkFileDef::getFileFormat(std::string const& name) {
    auto const found = formatsByName().find(name);
    return found == formatsByName().end() ? FILEFORMAT_UNKNOWN : found->second;
}

BulkFileDef const* BulkFileDef::Cast(SourceDef const* source) noexcept {
    return dynamic_cast<BulkFileDef const*>(source);
}

int BulkFileDef::getHashCode() const {
    return Hasher(17)(fileName_)(static_cast<unsigned int>(fileFormat_));
}

void BulkFileDef::print(std::ostream& out) const {
    out << "BulkFileDef(" << Detail::Quoted{fileName_} << ", ";
    if (std::string const* const name = nameOf(fileFormat_)) {
        out << *name << ")";
    } else {
        out << static_cast<int>(fileFormat_) << ")";
    }
}

bool BulkFileDef::compare(SourceDef const& other) const {
    auto const* const file = Cast(&other);
    return file != nullptr && fileName_ == file->fileName_ && fileFormat_ == file->fileFormat_;
}

std::unique_ptr<SourceDef> BulkFileDef::makeClone() const {
    return std::make_unique<BulkFileDef>(fileName_, fileFormat_);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Source
