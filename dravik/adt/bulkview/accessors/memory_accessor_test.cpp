// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/accessors/memory_accessor.h"

#include "dravik/adt/exceptions/simple_exception.h"

#include "dravik/adt/testing/counted_storage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Accessors {
namespace {

using Position = FixedVector<4, int>;
using Testing::unallocatedPlane;

SharedArray<2> plane() {
    return SharedArray<2>::Make<float>({{0, 0}, {3, 4}});
}

TEST(MemoryAccessor, HasTheArraysUpperCornerAsSize) {
    EXPECT_EQ(MemoryAccessor(plane()).getSize(), Position(3, 4, 1, 1));
    EXPECT_EQ(MemoryAccessor(SharedArray<3>::Make<char>({{1, 1, 1}, {3, 4, 5}})).getSize(), Position(3, 4, 5, 1));
    EXPECT_EQ(MemoryAccessor(unallocatedPlane(48)).getSize(), Position(3, 4, 1, 1))
        << "storage without memory is enough";
    MemoryAccessor disposed(plane());
    disposed.dispose(/*flag=*/false);
    EXPECT_EQ(disposed.data().data(), nullptr);
    EXPECT_EQ(disposed.data().range().max, Position(3, 4, 1, 1));
    for (MemoryAccessor accessor : {MemoryAccessor(), disposed}) {
        EXPECT_THAT(
            [&] { accessor.getSize(); },
            testing::ThrowsMessage<std::runtime_error>("[MemoryAccessor] Accessor does not have any data."));
    }
    BufferHandle handle;
    disposed.getBuffer({}, AdtEnums::Write, handle);
    EXPECT_FALSE(handle.isNull()) << "a writer gets new memory";
    EXPECT_EQ(disposed.getSize(), Position(3, 4, 1, 1));
}

TEST(MemoryAccessor, TellsItsFastestAxis) {
    float samples[8] = {};
    struct Row {
        FixedVector<4, int> size, strides;
        int fastest;
    };
    for (Row const& row :
         {Row{{2, 1, 2, 1}, {1, 1, 2, 1}, 0}, Row{{2, 2, 2, 1}, {4, 2, -1, 0}, 2},
          Row{{2, 2, 1, 1}, {4, 2, 1, 1}, -1}}) {
        ArrayRef<4> const array(
            OpenEndedRange<4, int>::OfSize(row.size), row.strides, reinterpret_cast<char*>(samples + 1), 0,
            typeid(float), 32);
        MemoryAccessor const accessor(SharedArray<4>(array, SharedBuffer()));
        EXPECT_EQ(accessor.traits().fastestAxis, row.fastest) << row.size;
    }
    EXPECT_EQ(AccessTraits().fastestAxis, -1);
}

TEST(MemoryAccessor, LendsAllOfIt) {
    struct Owner : BufferHandle::Owner {
        void lock() override {}
        void unlock() override {}
    };
    boost::intrusive_ptr<BufferHandle::Owner> const owner(new Owner);
    for (int asked = 0; asked <= 4; ++asked) {
        MemoryAccessor accessor(plane());
        BufferHandle handle;
        handle.setOwner(owner.get());
        accessor.getBuffer({99, -1, 0, 0}, static_cast<AdtEnums::Access>(asked), handle);
        EXPECT_EQ(handle.access(), asked == AdtEnums::Read ? AdtEnums::Read : AdtEnums::ReadWrite) << asked;
        EXPECT_EQ(handle.range4(), (OpenEndedRange<4, int>{{}, {3, 4, 1, 1}})) << asked;
        EXPECT_EQ(handle.buffer(), accessor.data().data()) << asked;
        EXPECT_EQ(handle.owner(), owner.get()) << asked;
    }
}

TEST(MemoryAccessor, AllocatesForWritersOnlyAndOnce) {
    MemoryAccessor accessor(unallocatedPlane(48));
    auto const clone = accessor.createClone();
    BufferHandle reader, writer, other;
    accessor.getBuffer({}, AdtEnums::Read, reader);
    EXPECT_TRUE(reader.isNull());
    EXPECT_TRUE(reader.contains(2, 3, 0, 0));
    accessor.getBuffer({}, AdtEnums::Populate, writer);
    clone->getBuffer({}, AdtEnums::Read, other);
    EXPECT_TRUE(other.isNull()) << "a clone from before reads nothing until it writes";
    EXPECT_FALSE(writer.isNull()) << "a clone from before reads nothing until it writes";
    clone->getBuffer({}, AdtEnums::ReadWrite, other);
    accessor.getBuffer({}, AdtEnums::Read, reader);
    EXPECT_EQ(other.buffer(), writer.buffer());
    EXPECT_EQ(reader.buffer(), writer.buffer());

    MemoryAccessor(unallocatedPlane(47)).getBuffer({}, AdtEnums::ReadWrite, other);
    EXPECT_TRUE(other.isNull()) << "storage that is too small";
    EXPECT_TRUE(other.contains(2, 3)) << "storage that is too small";
    auto backwards = unallocatedPlane(48);
    backwards.setStrides({-4, 1, 0, 0});
    EXPECT_THROW(MemoryAccessor(backwards).getBuffer({}, AdtEnums::ReadWrite, reader), std::runtime_error);
    EXPECT_EQ(reader.buffer(), writer.buffer()) << "the handle as it was";
    EXPECT_EQ(reader.access(), AdtEnums::Read) << "the handle as it was";

    static float const fixed[12] = {};
    auto readOnly = plane();
    readOnly.setBuffer(SharedBuffer(
        new SharedBuffer::ExternalPointerOwner(const_cast<float*>(fixed), sizeof fixed, /*writable=*/false)));
    EXPECT_THROW(
        MemoryAccessor(readOnly).getBuffer({}, AdtEnums::ReadWrite, reader), Exceptions::NotSupportedException);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
