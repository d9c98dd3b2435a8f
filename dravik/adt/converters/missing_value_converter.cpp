// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/missing_value_converter.h"

#include "dravik/adt/platform/type_name.h"

#include <boost/make_shared.hpp>

#include <cstddef>
#include <cstring>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt::Converters {

namespace {

using ConverterPtr = IValueConverter::ConstPtr;

template <class T, class Exchange>
class ExchangingConverter final : public IValueConverter {
  public:
    explicit ExchangingConverter(Exchange exchange) : exchange_(exchange) {}

    std::type_info const& getInputType() const override { return typeid(T); }
    std::type_info const& getOutputType() const override { return typeid(T); }
    void convert(void const* in, void* out) const override { convertStrided(in, 0, 1, out, 0, 1, 1); }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        char const* from = static_cast<char const*>(in) + inIndex * kBytes;
        char* to = static_cast<char*>(out) + outIndex * kBytes;
        for (int done = 0; done < count; ++done, from += inStride * kBytes, to += outStride * kBytes) {
            T value;
            std::memcpy(&value, from, sizeof value);
            value = exchange_(value);
            std::memcpy(to, &value, sizeof value);
        }
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        convertStrided(in, inIndex, 1, out, outIndex, 1, count);
    }

  private:
    static constexpr std::ptrdiff_t kBytes = sizeof(T);

    Exchange exchange_;
};

template <class T, class Exchange>
ConverterPtr exchanging(Exchange exchange) {
    return boost::make_shared<ExchangingConverter<T, Exchange>>(exchange);
}

[[noreturn]] void refuse(char const* who, std::string const& why) {
    throw std::invalid_argument("[MissingValueConverter::" + std::string(who) + "] Invalid argument: " + why);
}

// Calls make(T()) for the type that `type` is.
template <class Make>
ConverterPtr forType(char const* who, std::type_info const& type, Make make) {
    if (type == typeid(float)) {
        return make(float());
    }
    if (type == typeid(double)) {
        return make(double());
    }
    refuse(who, "'" + Platform::readableTypeName(type) + "' has no not-a-number.");
}

}  // namespace

ConverterPtr MissingValueConverter::toNotANumber(std::type_info const& type, double lowest, double highest) {
    if (!(lowest <= highest)) {
        std::ostringstream text;
        text << "no value lies between " << lowest << " and " << highest << ".";
        refuse("toNotANumber", text.str());
    }
    return forType("toNotANumber", type, [=](auto zero) {
        using T = decltype(zero);
        return exchanging<T>([low = static_cast<T>(lowest), high = static_cast<T>(highest)](T value) {
            return low <= value && value <= high ? std::numeric_limits<T>::quiet_NaN() : value;
        });
    });
}

ConverterPtr MissingValueConverter::fromNotANumber(std::type_info const& type, double missing) {
    return forType("fromNotANumber", type, [=](auto zero) {
        using T = decltype(zero);
        return exchanging<T>([with = static_cast<T>(missing)](T value) { return value != value ? with : value; });
    });
}

}  // namespace Quorvel::Dravik::Adt::Converters
