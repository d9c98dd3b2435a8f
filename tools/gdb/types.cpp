// SPDX-License-Identifier: Apache-2.0
// The types that the library compiles, for gdb: of these a compiler tells the debugger only the name where they are
// used. Installed beside the library as debug information alone; the printers load it.

#include "dravik/adt/adt.h"
#include "dravik/adt/core/detail/index_set_tree.h"

namespace Quorvel::Dravik::Adt {

struct TypesForDebuggers {
    BulkView::Typed1dRwView<float> row;
    BulkView::Typed2dRwView<float> plane;
    BulkView::Typed2dRwView<unsigned char> bytePlane;
    BulkView::Typed2dRwView<char> charPlane;
    BulkView::Typed3dRwView<float> volume;
    BulkView::Typed4dRwView<float> hypervolume;
    BulkView::BufferHandle handle;
    Histogram histogram;
    IndexSet<1, int> indices;
    IndexSet<2, int> places;
    IndexSet<3, int> boxes;
    Detail::IndexSetTree<1> indexTree;
    Detail::IndexSetTree<2> placeTree;
    Detail::IndexSetTree<3> boxTree;
    Detail::IndexNode<1> indexNode;
    Detail::IndexNode<2> placeNode;
    Detail::IndexNode<3> boxNode;
    SharedArray<1> array1;
    SharedArray<2> array2;
    SharedArray<3> array3;
    SharedArray<4> array4;
    ArrayConstRef<1> lent1;
    ArrayConstRef<2> lent2;
    ArrayConstRef<3> lent3;
    ArrayConstRef<4> lent4;
    SharedBuffer::BasicArrayOwner bytes;
    SharedBuffer::ExternalPointerOwner external;
    BulkDef::Entity::SourceEntityDef source;
    BulkDef::Entity::DerivedEntityDef derived;
    BulkDef::Source::BulkFileDef file;
    BulkDef::Source::ConstantDef constant;
    BulkDef::Source::ProjectItemDef item;
    BulkDef::Transform::CacheDef cache;
    BulkDef::Transform::ConcatDef join;
    BulkDef::Transform::ConvertDef conversion;
    BulkDef::Transform::DecimateDef decimation;
    BulkDef::Transform::MinMaxDef extremes;
    BulkDef::Transform::MissingValueDef missing;
    BulkDef::Transform::MultiresDef levels;
    BulkDef::View::ArrayMapDef<1> map1;
    BulkDef::View::ArrayMapDef<2> map2;
    BulkDef::View::ArrayMapDef<3> map3;
    BulkDef::View::ArrayMapDef<4> map4;
    BulkDef::View::ArraySubsetDef<1> subset1;
    BulkDef::View::ArraySubsetDef<2> subset2;
    BulkDef::View::ArraySubsetDef<3> subset3;
    BulkDef::View::ArraySubsetDef<4> subset4;
    BulkDef::View::AxesViewDef<2> axes2;
    BulkDef::View::AxesViewDef<3> axes3;
    BulkDef::View::AxesViewDef<4> axes4;
    BulkDef::View::CompleteViewDef complete;
    BulkDef::View::CompositeViewDef composite;
    BulkDef::View::ArrayViewDef::InverseArrayViewDef inverse;
};

// What no variable refers to is not described.
extern TypesForDebuggers const* const typesForDebuggers;
TypesForDebuggers const* const typesForDebuggers = nullptr;

}  // namespace Quorvel::Dravik::Adt
