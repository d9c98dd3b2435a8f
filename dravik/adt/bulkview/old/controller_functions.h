// SPDX-License-Identifier: Apache-2.0
#pragma once

// The controller of older callers as plain functions: for C11 and for C++, without classes and without exceptions.
//
// Every function takes a controller first. C callers get it from C++ code, which makes it, keeps it while it is in use
// and destroys it. One caller at a time.
//
// Every function takes the place of an error text second. It is set to null first; when the operation fails, it
// receives a text that the caller releases with free(), and the function returns 0 or null. No memory for a text leaves
// it null. A null place means that no text is wanted; null in any other place that receives a result, and a null
// controller, are failures of their own. In C++, exceptions that are no std::exception pass through.
//
// Memory models and what `unused` arguments mean are a matter of the controller; the library's own one knows model 0
// and looks at none of the others. A write flag of exactly 1 asks for reading and writing, any other for reading.

#include "dravik/adt/export.h"

#ifdef __cplusplus
namespace Quorvel::Dravik::Adt::BulkView::Old {
class IController;
}
using Adt_BulkView_Controller = Quorvel::Dravik::Adt::BulkView::Old::IController;
extern "C" {
#else
typedef struct Adt_BulkView_Controller Adt_BulkView_Controller;
#endif

/// Opens the data, once. Returns 0, in success too.
DRAVIK_ADT_EXPORT int Adt_BulkView_Controller_Open(Adt_BulkView_Controller* controller, char** errorText);

/// Releases the data. The controller stays the property of its maker.
DRAVIK_ADT_EXPORT void Adt_BulkView_Controller_Close(Adt_BulkView_Controller* controller, char** errorText, int unused);

/// Bytes per sample.
DRAVIK_ADT_EXPORT int Adt_BulkView_Controller_VtSize(Adt_BulkView_Controller* controller, char** errorText);

/// Samples along axis 0, 1 or 2.
DRAVIK_ADT_EXPORT int Adt_BulkView_Controller_Size(Adt_BulkView_Controller* controller, char** errorText, int axis);

/// The number of the brick that holds a sample.
DRAVIK_ADT_EXPORT int Adt_BulkView_Controller_Brick(
    Adt_BulkView_Controller* controller, char** errorText, int unused, int x, int y, int z);

/// Where in its brick a sample lies, in bytes.
DRAVIK_ADT_EXPORT int Adt_BulkView_Controller_Offset(
    Adt_BulkView_Controller* controller, char** errorText, int unused, int x, int y, int z);

/// The memory of a brick, which belongs to the controller and is good until the next call; null when there is none.
DRAVIK_ADT_EXPORT void* Adt_BulkView_Controller_Buffer(
    Adt_BulkView_Controller* controller, char** errorText, int unused, int memoryModel, void* unusedPointer, int brick,
    int writeFlag);

/// As Buffer, for controllers that lend samples in a row: the memory in *buffer, nine numbers about it in the others.
DRAVIK_ADT_EXPORT void Adt_BulkView_Controller_BufferAndLinearInfo(
    Adt_BulkView_Controller* controller, char** errorText, int unused, int memoryModel, void* unusedPointer,
    int unused1, int unused2, int unused3, int writeFlag, void** buffer, int* info1, int* info2, int* info3, int* info4,
    int* info5, int* info6, int* info7, int* info8, int* info9);

/// Writes back what the controller holds.
DRAVIK_ADT_EXPORT void Adt_BulkView_Controller_Flush(
    Adt_BulkView_Controller* controller, char** errorText, int unused, void* unusedPointer);

/// What the controller can do, one bit each.
DRAVIK_ADT_EXPORT int Adt_BulkView_Controller_Features(Adt_BulkView_Controller* controller, char** errorText);

/// Tells the controller what will be asked for.
DRAVIK_ADT_EXPORT void Adt_BulkView_Controller_SetHint(
    Adt_BulkView_Controller* controller, char** errorText, int unused1, int unused2, int unused3, int unused4,
    int unused5);

#ifdef __cplusplus
}
#endif
