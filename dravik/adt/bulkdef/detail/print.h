// SPDX-License-Identifier: Apache-2.0
#pragma once

// How definitions are written to streams; for the sources of this folder.

#include "dravik/adt/bulkdef/printable.h"

#include <boost/core/demangle.hpp>

#include <ostream>
#include <string>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkDef::Detail {

/// Writes `def` in its own words, or else the name of its type.
template <class Root>
std::ostream& printDefinition(std::ostream& out, Root const& def) {
    if (auto const* const printable = dynamic_cast<IPrintable const*>(&def)) {
        printable->print(out);
        return out;
    }
    return out << boost::core::demangle(typeid(def).name());
}

/// A text in quotes; what would break the line or the quotes is written as an escape.
struct Quoted {
    std::string const& text;

    friend std::ostream& operator<<(std::ostream& out, Quoted const& quoted) {
        constexpr char const* kDigits = "0123456789abcdef";
        out << '"';
        for (char const character : quoted.text) {
            auto const code = static_cast<unsigned char>(character);
            if (code < 0x20 || code == 0x7F) {
                out << "\\x" << kDigits[code / 16] << kDigits[code % 16];
            } else {
                out << (character == '"' || character == '\\' ? "\\" : "") << character;
            }
        }
        return out << '"';
    }
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Detail
