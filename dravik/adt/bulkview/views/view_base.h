// SPDX-License-Identifier: Apache-2.0
#pragma once

// ViewBase: owns a chain of accessors and is its client. Threads: one view, one thread; notifications as IClient says.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/export.h"

#include <memory>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkView {

/// What every view has, whatever it reads: the chain below, from `init` until `dispose`.
class DRAVIK_ADT_EXPORT ViewBase : protected IBufferAccessor::IClient {
  public:
    /// Whether there is no accessor: before `init` and after `dispose`.
    bool isNull() const noexcept { return accessor_ == nullptr; }

    /// Whether this is a view that writes, over a chain that does not tell that it cannot be written.
    virtual bool isWritable() const = 0;
    /// The sample type.
    virtual std::type_info const& valueType() const = 0;

    /// Takes over the chain in place of the one before, which is destroyed, and becomes its client.
    /// @throws std::invalid_argument for null, with the view as it was
    virtual void init(std::unique_ptr<IBufferAccessor> accessor);

    /// Destroys the chain.
    virtual void dispose();

  protected:
    ViewBase() = default;
    ViewBase(ViewBase const&) = delete;
    /// Owns a clone of the other's chain afterwards, or none where the other has none. Nothing happens on assignment to
    /// itself.
    ViewBase& operator=(ViewBase const& other);
    ~ViewBase() override;

    /// @throws std::invalid_argument where the accessor tells samples of another type or size than these
    static void expectSamples(IBufferAccessor& accessor, std::type_info const& type, int bitSize);

    /// False where the chain tells that it cannot be written; true where it tells nothing.
    bool chainMayBeWritten() const;

    /// @throws ViewException without an accessor
    IBufferAccessor& accessor() const {
        if (isNull()) {
            throwUninitialized();
        }
        return *accessor_;
    }

    /// Takes over the other's chain, and becomes its client; a chain that fails to take this client is destroyed.
    /// @pre this view has no chain
    void takeAccessor(ViewBase& other) noexcept;
    void destroyAccessor() noexcept { accessor_.reset(); }

    /// Disposes of the chain, so there is nothing to give up: null.
    std::unique_ptr<IBufferAccessor> releaseAccessor() override;

  private:
    [[noreturn]] static void throwUninitialized();
    void install(std::unique_ptr<IBufferAccessor> accessor);

    std::unique_ptr<IBufferAccessor> accessor_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
