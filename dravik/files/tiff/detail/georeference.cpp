// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/tiff/detail/georeference.h"

#include <geo_normalize.h>
#include <geotiffio.h>
#include <xtiffio.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace Quorvel::Dravik::Files::Detail {

namespace {

constexpr int kUserDefined = 32767;

void dropMessage(GTIF* /*keys*/, int /*level*/, char const* /*format*/, ...) {}

class GeoKeys {
  public:
    explicit GeoKeys(TiffHandle& file) : keys_(GTIFNewEx(file.get(), dropMessage, nullptr), GTIFFree) {}

    GTIF* get() const noexcept { return keys_.get(); }
    /// 0 where the file does not tell it.
    int number(geokey_t key) const {
        std::uint16_t value = 0;
        int elements = 0;
        tagtype_t type = TYPE_UNKNOWN;
        bool const isShort = keys_ != nullptr && GTIFKeyInfo(keys_.get(), key, &elements, &type) > 0 &&
                             type == TYPE_SHORT && GTIFKeyGetSHORT(keys_.get(), key, &value, 0, 1) == 1;
        return isShort ? value : 0;
    }

  private:
    std::unique_ptr<GTIF, void (*)(GTIF*)> keys_;
};

std::optional<std::array<double, 6>> transformOf(TiffHandle& file) {
    auto const matrix = file.doubles(TIFFTAG_GEOTRANSMATRIX);
    if (matrix.size() >= 16) {
        return std::array{matrix[3], matrix[0], matrix[1], matrix[7], matrix[4], matrix[5]};
    }
    auto const scale = file.doubles(TIFFTAG_GEOPIXELSCALE), tie = file.doubles(TIFFTAG_GEOTIEPOINTS);
    if (scale.size() < 2 || tie.size() < 6 || scale[0] == 0 || scale[1] == 0) {
        return std::nullopt;
    }
    return std::array{tie[3] - tie[0] * scale[0], scale[0], 0., tie[4] + tie[1] * scale[1], 0., -scale[1]};
}

std::string unitOf(GeoKeys const& keys, bool isGeographic) {
    if (isGeographic) {
        int const unit = keys.number(GeogAngularUnitsGeoKey);
        return unit == 0 || unit == Angular_Degree ? "degrees" : "";
    }
    switch (keys.number(ProjLinearUnitsGeoKey)) {
    case Linear_Meter:
        return "m";
    case Linear_Foot:
        return "ft";
    case Linear_Foot_US_Survey:
        return "US_survey_foot";
    default:
        return "";
    }
}

}  // namespace

Georeference georeferenceOf(TiffHandle& file) {
    Georeference found;
    found.transform = transformOf(file);
    GeoKeys const keys(file);
    found.isGeographic = keys.number(GTModelTypeGeoKey) == ModelTypeGeographic;
    found.unit = unitOf(keys, found.isGeographic);
    int const code = keys.number(found.isGeographic ? GeographicTypeGeoKey : ProjectedCSTypeGeoKey);
    found.referenceSystem = code == kUserDefined ? 0 : code;
    if (found.transform && keys.number(GTRasterTypeGeoKey) == RasterPixelIsPoint) {
        // Tells where the middle of a sample lies.
        auto& t = *found.transform;
        t[0] -= (t[1] + t[2]) / 2;
        t[3] -= (t[4] + t[5]) / 2;
    }
    if (found.transform && !std::all_of(found.transform->begin(), found.transform->end(), [](double each) {
            return std::isfinite(each);
        })) {
        found.transform.reset();
    }
    return found;
}

void setGeoreference(TiffHandle& file, std::optional<std::array<double, 6>> const& transform, int referenceSystem) {
    TIFF* const tiff = file.get();
    if (transform) {
        auto const& t = *transform;
        if (t[2] == 0 && t[4] == 0 && t[1] > 0 && t[5] < 0) {
            double const scale[] = {t[1], -t[5], 0}, tie[] = {0, 0, 0, t[0], t[3], 0};
            TIFFSetField(tiff, TIFFTAG_GEOPIXELSCALE, 3, scale);
            TIFFSetField(tiff, TIFFTAG_GEOTIEPOINTS, 6, tie);
        } else {
            double const matrix[] = {t[1], t[2], 0, t[0], t[4], t[5], 0, t[3], 0, 0, 0, 0, 0, 0, 0, 1};
            TIFFSetField(tiff, TIFFTAG_GEOTRANSMATRIX, 16, matrix);
        }
    }
    if (!transform && referenceSystem == 0) {
        return;
    }
    GeoKeys const keys(file);
    file.require(keys.get() != nullptr, "cannot be written");
    GTIFKeySet(keys.get(), GTRasterTypeGeoKey, TYPE_SHORT, 1, RasterPixelIsArea);
    if (referenceSystem != 0) {
        bool const isGeographic = GTIFGetGCSInfo(referenceSystem, nullptr, nullptr, nullptr, nullptr) != 0;
        GTIFKeySet(
            keys.get(), GTModelTypeGeoKey, TYPE_SHORT, 1, isGeographic ? ModelTypeGeographic : ModelTypeProjected);
        GTIFKeySet(
            keys.get(), isGeographic ? GeographicTypeGeoKey : ProjectedCSTypeGeoKey, TYPE_SHORT, 1, referenceSystem);
    }
    file.require(GTIFWriteKeys(keys.get()) != 0, "cannot be written");
}

}  // namespace Quorvel::Dravik::Files::Detail
