// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/value_converter_factory.h"

#include "dravik/adt/converters/composite_converter.h"
#include "dravik/adt/converters/copy_converter.h"
#include "dravik/adt/converters/detail/pair_table.h"
#include "dravik/adt/converters/int1_copy_converter.h"
#include "dravik/adt/converters/number_converters.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/platform/type_name.h"

#include <boost/make_shared.hpp>

#include <array>
#include <optional>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt::Converters {

namespace {

using ConverterPtr = IValueConverter::ConstPtr;
using Detail::sampleTypeOf;
using Maker = ConverterPtr (*)(ScaleOffset const& transform);
using MakerTable = Detail::PairTable<Maker>;

template <class S, class D>
struct Basic {
    static ConverterPtr make(ScaleOffset const&) {
        if constexpr (Detail::widens(sampleTypeOf<S>(), sampleTypeOf<D>())) {
            return boost::make_shared<PureTypeConverter<S, D>>();
        } else if constexpr (Detail::narrows(sampleTypeOf<S>(), sampleTypeOf<D>())) {
            return boost::make_shared<BasicDownScaleConverter<S, D>>();
        } else if constexpr (Detail::convertsStorage(sampleTypeOf<S>(), sampleTypeOf<D>())) {
            return boost::make_shared<StorageTypeConverter<S, D>>();
        } else {
            return {};
        }
    }
    static constexpr Maker kEntry = make;
};

template <class S, class D>
struct Scaled {
    static ConverterPtr make(ScaleOffset const& transform) {
        if constexpr (std::same_as<D, float> && Detail::scales(sampleTypeOf<S>(), sampleTypeOf<D>())) {
            return boost::make_shared<FloatConverter<S>>(transform);
        } else if constexpr (Detail::scalesToInteger(sampleTypeOf<S>(), sampleTypeOf<D>())) {
            return boost::make_shared<DownScaleConverter<S, D>>(transform);
        } else {
            return {};
        }
    }
    static constexpr Maker kEntry = make;
};

constexpr MakerTable kBasic = MakerTable::Of<Basic>();
constexpr MakerTable kScaled = MakerTable::Of<Scaled>();

// None for a type that is no sample type.
template <class... T>
std::optional<Detail::SampleType> sampleTypeNamed(std::type_info const& type, Detail::TypeList<T...>) {
    std::type_info const* const sampleTypes[] = {&typeid(T)...};
    for (int index = 0; index < Detail::kSampleTypeCount; ++index) {
        if (*sampleTypes[index] == type) {
            return static_cast<Detail::SampleType>(index);
        }
    }
    return std::nullopt;
}

// A converter of the table; an exception that names the missing conversion, `kind`, where it has none.
ConverterPtr makeFrom(
    MakerTable const& table, char const* kind, std::type_info const& in, std::type_info const& out,
    ScaleOffset const& transform) {
    auto const from = sampleTypeNamed(in, Detail::SampleTypes());
    auto const to = sampleTypeNamed(out, Detail::SampleTypes());
    ConverterPtr converter = from && to ? table(*from, *to)(transform) : ConverterPtr();
    if (!converter) {
        throw Exceptions::NotImplementedException(
            std::string("ValueConverterFactory: Missing ") + kind + " conversion from '" +
            Platform::readableTypeName(in) + "' to '" + Platform::readableTypeName(out) + "'.");
    }
    return converter;
}

constexpr unsigned kLargestCopy = 64;  // bits
using CopyConverters = std::array<ConverterPtr, kLargestCopy + 1>;

CopyConverters const& copyConverters() {
    // Never destroyed: statics of users may ask at exit.
    static CopyConverters const& converters = *[] {
        auto* const made = new CopyConverters;
        CopyConverters& table = *made;
        table[1] = boost::make_shared<Int1CopyConverter>();
        table[8] = boost::make_shared<CopyConverter<char>>();
        table[16] = boost::make_shared<CopyConverter<short>>();
        table[32] = boost::make_shared<CopyConverter<float>>();
        table[64] = boost::make_shared<CopyConverter<double>>();
        return made;
    }();
    return converters;
}

// Made when the library is loaded, so that no later call has to; a static initialiser that asks earlier makes them
// then.
[[maybe_unused]] CopyConverters const& kMadeAtLoad = copyConverters();

// @pre 0 <= bits <= kLargestCopy
ConverterPtr const& copyConverterOf(int bits, char const* message) {
    ConverterPtr const& converter = copyConverters()[static_cast<std::size_t>(bits)];
    if (!converter) {
        throw std::invalid_argument(message);
    }
    return converter;
}

}  // namespace

ConverterPtr ValueConverterFactory::getCopyConverter(int bits) {
    if (static_cast<unsigned>(bits) > kLargestCopy) {
        return makeCopyConverter(bits);
    }
    return copyConverterOf(bits, "[ValueConverterFactory::getCopyConverter] Unsupported value type between 0 and 64.");
}

IValueConverter const& ValueConverterFactory::getCopyConverterRef(int bits) {
    if (static_cast<unsigned>(bits) > kLargestCopy) {
        throw std::invalid_argument(
            "[ValueConverterFactory] getCopyConverterRef only supported for value types sizes up to 64 bits.");
    }
    return *copyConverterOf(
        bits, "[ValueConverterFactory::getCopyConverterRef] Unsupported value type between 0 and 64.");
}

ConverterPtr ValueConverterFactory::makeCopyConverter(int) {
    throw Exceptions::NotImplementedException(
        "CopyConverter not yet implemented generically for all value type sizes.");
}

ConverterPtr ValueConverterFactory::getTypeConverter(std::type_info const& in, std::type_info const& out) {
    return in == out ? ConverterPtr() : makeFrom(kBasic, "basic", in, out, ScaleOffset::identity());
}

ConverterPtr ValueConverterFactory::getTypeConverter(
    std::type_info const& in, std::type_info const& out, ScaleOffset const& transform, bool copyIfSame) {
    if (transform != ScaleOffset::identity()) {
        return makeFrom(kScaled, "scaled", in, out, transform);
    }
    if (in == out && copyIfSame) {
        return getCopyConverter(TypeRegister::sizeofTypeInBits(out));
    }
    return getTypeConverter(in, out);
}

ConverterPtr ValueConverterFactory::prependTypeConverter(
    std::type_info const& in, ScaleOffset const& transform, ConverterPtr const& converter) {
    if (!converter) {
        throw std::invalid_argument("[ValueConverterFactory::prependTypeConverter] null converter argument");
    }
    ConverterPtr const before = getTypeConverter(in, converter->getInputType(), transform, /*copyIfSame=*/false);
    return before ? CompositeConverter::getCompositeConverter(before, converter, {}) : converter;
}

ConverterPtr ValueConverterFactory::prependTypeConverter(std::type_info const& in, ConverterPtr const& converter) {
    return prependTypeConverter(in, ScaleOffset::identity(), converter);
}

ConverterPtr ValueConverterFactory::appendTypeConverter(
    ConverterPtr const& converter, bool withInverse, std::type_info const& out, ScaleOffset const& transform) {
    if (!converter) {
        throw std::invalid_argument("[ValueConverterFactory::appendTypeConverter] null converter argument");
    }
    std::type_info const& between = converter->getOutputType();
    ConverterPtr const after = getTypeConverter(between, out, transform, /*copyIfSame=*/false);
    if (!after) {
        return converter;
    }
    ConverterPtr inverse;
    if (withInverse) {
        inverse = getTypeConverter(out, between, transform.getInverse(), /*copyIfSame=*/false);
    }
    return CompositeConverter::getCompositeConverter(converter, after, inverse);
}

ConverterPtr ValueConverterFactory::appendTypeConverter(
    ConverterPtr const& converter, bool withInverse, std::type_info const& out) {
    return appendTypeConverter(converter, withInverse, out, ScaleOffset::identity());
}

}  // namespace Quorvel::Dravik::Adt::Converters
