// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/views/typed_1d_views.h"
#include "dravik/adt/bulkview/views/typed_2d_views.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"
#include "dravik/adt/bulkview/views/typed_4d_views.h"

namespace Quorvel::Dravik::Adt::BulkView {

template class TypedViewBase<1, float>;
template class TypedViewBase<2, float>;
template class TypedViewBase<2, unsigned char>;
template class TypedViewBase<2, char>;
template class TypedViewBase<3, float>;
template class TypedViewBase<4, float>;

template class Typed1dRoView<float>;
template class Typed1dRwView<float>;

template class Typed2dRoView<float>;
template class Typed2dRoView<unsigned char>;
template class Typed2dRoView<char>;
template class Typed2dRwView<float>;
template class Typed2dRwView<unsigned char>;
template class Typed2dRwView<char>;

template class Typed3dRoView<float>;
template class Typed3dRwView<float>;

template class Typed4dRoView<float>;
template class Typed4dRwView<float>;

}  // namespace Quorvel::Dravik::Adt::BulkView
