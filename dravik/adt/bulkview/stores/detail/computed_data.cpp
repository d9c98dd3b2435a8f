// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/detail/computed_data.h"

#include "dravik/adt/bulkdef/transform/decimate_def.h"
#include "dravik/adt/bulkview/accessors/constant_accessor.h"
#include "dravik/adt/bulkview/filters/concat_filter.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"
#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/bulkview/stores/box_mean_filter.h"
#include "dravik/adt/converters/composite_converter.h"
#include "dravik/adt/converters/int1.h"
#include "dravik/adt/converters/missing_value_converter.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

namespace {

constexpr std::size_t kMostBytes = 8;  // of a sample type with a name

template <class... Pieces>
[[noreturn]] void refuse(Pieces const&... pieces) {
    std::ostringstream text;
    text << "[Openers::open] Invalid argument: ";
    (text << ... << pieces);
    throw std::invalid_argument(text.str());
}

// Writes `value` to `bytes` if `type` is T and holds it: floats hold any number as their nearest one.
template <class T>
bool put(std::type_info const& type, double value, char* bytes) {
    if (type != typeid(T)) {
        return false;
    }
    if constexpr (std::is_integral_v<T>) {
        // Of 64 bits, the end above is not a double; the power of two behind it is.
        double const end = std::ldexp(1.0, std::numeric_limits<T>::digits);
        double const low = std::is_signed_v<T> ? -end : 0;
        if (!(low <= value && value < end) || std::trunc(value) != value) {
            return false;
        }
    }
    T const sample = static_cast<T>(value);
    std::memcpy(bytes, &sample, sizeof sample);
    return true;
}

template <class... Types>
bool putAny(std::type_info const& type, double value, char* bytes) {
    return (put<Types>(type, value, bytes) || ...);
}

bool putSample(std::type_info const& type, double value, char* bytes) {
    if (type == typeid(Int1)) {
        bytes[0] = static_cast<char>(value);
        return value == 0 || value == 1;
    }
    return type == typeid(char)
               ? put<signed char>(typeid(signed char), value, bytes)
               : putAny<unsigned char, short, unsigned short, int, unsigned, std::int64_t, float, double>(
                     type, value, bytes);
}

// From `type` to floats, or doubles where it is double, and back; null where nothing changes or no way exists.
std::pair<IValueConverter::ConstPtr, IValueConverter::ConstPtr> numbersOf(std::type_info const& type) {
    using Converters::ValueConverterFactory;
    if (type == typeid(float) || type == typeid(double)) {
        return {};
    }
    auto const there = ValueConverterFactory::getTypeConverter(type, typeid(float));
    try {
        return {there, ValueConverterFactory::getTypeConverter(typeid(float), type)};
    } catch (Exceptions::NotImplementedException const&) {
        return {there, nullptr};
    }
}

}  // namespace

OpenedData constantData(BulkDef::Source::ConstantDef const& def) {
    std::type_info const* const type = sampleTypeNamed(def.sampleType());
    char bytes[kMostBytes] = {};
    if (type == nullptr) {
        refuse("no sample type is named \"", def.sampleType(), "\".");
    }
    if (!putSample(*type, def.value(), bytes)) {
        refuse("no sample of type ", def.sampleType(), " holds ", def.value(), ".");
    }
    int const bits = TypeRegister::sizeofTypeInBits(*type);
    OpenedData data{std::make_unique<Accessors::ConstantAccessor>(def.size(), *type, bits, bytes), {}};
    while (data.info.axisCount > 1 && def.size()[data.info.axisCount - 1] == 1) {
        --data.info.axisCount;
    }
    return data;
}

OpenedData joinedData(BulkDef::Transform::ConcatDef const& def, std::vector<OpenedData> inputs) {
    std::vector<std::unique_ptr<IBufferAccessor>> parts;
    std::vector<double> coordinates;
    DataInfo info;
    for (OpenedData& input : inputs) {
        bool const isFirst = parts.empty();
        int const length = def.axis() >= 0 && def.axis() < 4 ? input.chain->getSize()[def.axis()] : 0;
        info = isFirst ? input.info : info;
        if (length != 0) {
            auto const& its = input.info.axes[static_cast<std::size_t>(def.axis())].coordinates;
            bool const isKnown = its.size() == static_cast<std::size_t>(length) && (isFirst || !coordinates.empty());
            coordinates.insert(coordinates.end(), its.begin(), its.end());
            isKnown ? void() : coordinates.clear();
        }
        if (input.info.missingValue != info.missingValue) {
            info.missingValue.reset();
        }
        parts.push_back(std::move(input.chain));
    }
    auto chain = Filters::ConcatFilter::Apply(std::move(parts), def.axis());
    info.axisCount = std::max(info.axisCount, def.axis() + 1);
    info.axes[static_cast<std::size_t>(def.axis())].coordinates = std::move(coordinates);
    return {std::move(chain), std::move(info)};
}

OpenedData dataWithoutMissing(BulkDef::Transform::MissingValueDef const& def, OpenedData input) {
    using Converters::CompositeConverter;
    using Converters::MissingValueConverter;
    std::type_info const& from = *traitsOf(*input.chain).sampleType;
    if (from == typeid(void)) {
        refuse("samples of an unknown type cannot be told from missing ones.");
    }
    std::type_info const& to = from == typeid(double) ? typeid(double) : typeid(float);
    auto forward = MissingValueConverter::toNotANumber(to, def.lowest(), def.highest());
    auto inverse = MissingValueConverter::fromNotANumber(to, def.lowest());
    if (auto const [there, back] = numbersOf(from); there != nullptr) {
        forward = CompositeConverter::getCompositeConverter(there, forward, nullptr);
        inverse = back == nullptr ? back : CompositeConverter::getCompositeConverter(inverse, back, nullptr);
    }
    int const byteSize = TypeRegister::sizeofTypeInBits(to) / 8;
    input.chain = Filters::ValueConvertFilter::Apply(std::move(input.chain), byteSize, forward, inverse);
    input.info.missingValue.reset();
    return input;
}

OpenedData coarserData(BulkDef::Transform::MultiresDef const& def, OpenedData input, Openers const& openers) {
    using BulkDef::Transform::MultiresDef;
    int const factor = def.getFactor();
    if (def.getName() == MultiresDef::Decimation) {
        auto const steps = FixedVector<4, int>::Filled(factor);
        std::vector<OpenedData> inputs;
        inputs.push_back(std::move(input));
        return openers.transformed(BulkDef::Transform::DecimateDef(steps, {}), std::move(inputs));
    }
    if (def.getName() != MultiresDef::BasicAverage) {
        throw Exceptions::NotSupportedException("Openers", "nobody computes levels by \"" + def.getName() + "\".");
    }
    input.chain = BoxMeanFilter::Apply(std::move(input.chain), factor, openers.pool());
    for (DataAxis& axis : input.info.axes) {
        std::vector<double> means;
        for (std::size_t first = 0; first < axis.coordinates.size(); first += static_cast<std::size_t>(factor)) {
            auto const end = std::min(first + static_cast<std::size_t>(factor), axis.coordinates.size());
            double sum = 0;
            for (std::size_t k = first; k < end; ++k) {
                sum += axis.coordinates[k];
            }
            means.push_back(sum / static_cast<double>(end - first));
        }
        axis.coordinates = means;
    }
    return input;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
