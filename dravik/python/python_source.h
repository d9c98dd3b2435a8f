// SPDX-License-Identifier: Apache-2.0
#pragma once

// Sources that are Python functions. Threads: any; each call of a function holds the GIL.

#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/source_def.h"
#include "dravik/python/numpy.h"

#include <string>
#include <vector>

namespace Quorvel::Dravik::Python {

/// Samples that a function of this process makes; the definition tells all but the function.
class PythonSourceDef final : public Adt::BulkDef::SourceDef, public Adt::BulkDef::IPrintable {
  public:
    struct Fields {
        std::string kind;         ///< under which the function is registered
        std::vector<int> shape;   ///< samples per axis, one to four
        std::string sampleType;   ///< "float32"
        std::vector<int> chunks;  ///< of what the function is asked for at once; empty: the whole
        std::string parameters;   ///< JSON, as the function gets it; empty: none

        friend bool operator==(Fields const&, Fields const&) = default;
    };

    explicit PythonSourceDef(Fields fields) : fields_(std::move(fields)) {}

    Fields const& fields() const noexcept { return fields_; }
    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(Adt::BulkDef::SourceDef const& other) const override;
    std::unique_ptr<Adt::BulkDef::SourceDef> makeClone() const override;

  private:
    Fields fields_;
};

/// From now on sources of this kind are read by function(box, **parameters), box a tuple of slices, which gives an
/// array of the box's shape.
void registerOpener(std::string const& kind, pybind11::object function);

/// Makes the standard openers and forms know PythonSourceDef.
void addPythonSources();

}  // namespace Quorvel::Dravik::Python
