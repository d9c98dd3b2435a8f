// SPDX-License-Identifier: Apache-2.0
#pragma once

// Array: what Python sees of a chain. Threads: any, with the GIL, which transfers let go.

#include "dravik/adt/bulkdef/entity_def.h"
#include "dravik/adt/bulkdef/transform/unary_trans_def.h"
#include "dravik/adt/bulkdef/view/array_view_def.h"
#include "dravik/adt/bulkdef/view_def.h"
#include "dravik/python/chain.h"
#include "dravik/python/key.h"
#include "dravik/python/numpy.h"
#include "dravik/python/sample_types.h"

#include <pybind11/numpy.h>

#include <memory>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Python {

/// Samples on one to four axes behind a chain, and the definition that opens the same chain elsewhere.
class Array {
  public:
    using Entity = boost::shared_ptr<Adt::BulkDef::EntityDef const>;
    using View = boost::shared_ptr<Adt::BulkDef::ViewDef const>;

    /// Without an entity the samples are this process's own. `openedAxisCount` is what the definition alone would give.
    Array(std::shared_ptr<Chain> chain, Entity entity, View view, int openedAxisCount);

    /// Zero-copy over an ndarray of one to four axes, which the array keeps.
    static Array ofNdarray(pybind11::array const& array);

    pybind11::tuple shape() const;
    int ndim() const { return chain_->axisCount(); }
    pybind11::object dtype() const;
    pybind11::tuple chunks() const;
    bool writable() const { return chain_->traits().writable; }
    Chain& chain() const { return *chain_; }
    std::shared_ptr<Chain> const& sharedChain() const { return chain_; }
    Entity const& entity() const { return entity_; }
    View const& view() const { return view_; }
    int openedAxisCount() const { return openedAxisCount_; }

    pybind11::object getItem(PyObject* key) const;
    void setItem(PyObject* key, PyObject* value) const;

    pybind11::object read(
        pybind11::object const& key, pybind11::object const& out, pybind11::object const& dtype, int threads,
        pybind11::object const& progress) const;
    void write(
        pybind11::object const& key, pybind11::object const& value, int threads,
        pybind11::object const& progress) const;
    void flush() const;
    pybind11::array gather(pybind11::array const& indices) const;

    Array subset(pybind11::object const& key) const;
    Array transposed(std::vector<int> const& order) const;
    Array astype(pybind11::object const& dtype, double scale, double offset) const;
    Array cached(int samples) const;

  private:
    SampleType const& type() const { return sampleTypeOf(*chain_->traits().sampleType); }
    pybind11::object readFresh(Key const& key, SampleType const& type, int threads, pybind11::object progress) const;
    void readInto(
        Key const& key, char* samples, std::int64_t const* strides, SampleType const& type, int threads,
        pybind11::object const& progress) const;

    Array viewed(Adt::BulkDef::View::ArrayViewDef const& view, int axisCount) const;
    Array transformed(Adt::BulkDef::Transform::UnaryTransDef const& transform) const;

    std::shared_ptr<Chain> chain_;
    Entity entity_;
    View view_;
    int openedAxisCount_;
};

/// A block on loan, for as long as this or an array made of it exists.
class Loan {
  public:
    Loan(std::shared_ptr<Chain> chain, Index4 const& index);

    /// Of the block's samples, read-only and where they lie; of one missing sample, repeated, where it has no memory.
    pybind11::array array() const;
    /// Of slices.
    pybind11::tuple box() const;
    void release();

  private:
    struct State;
    std::shared_ptr<State> state_;  // null once released
};

}  // namespace Quorvel::Dravik::Python
