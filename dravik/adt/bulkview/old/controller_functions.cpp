// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/old/controller_functions.h"

#include "dravik/adt/bulkview/old/controller.h"

#include <cstring>
#include <exception>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace {

using Quorvel::Dravik::Adt::BulkView::AdtEnums;
using Quorvel::Dravik::Adt::BulkView::Old::IController;

AdtEnums::Access accessOf(int writeFlag) {
    return writeFlag == 1 ? AdtEnums::ReadWrite : AdtEnums::Read;
}

IController::MemoryModel modelOf(int memoryModel) {
    return static_cast<IController::MemoryModel>(memoryModel);
}

[[noreturn]] void failWithNull(char const* function, char const* argument) {
    throw std::invalid_argument(std::string("[") + function + "] Invalid argument: " + argument + " is null.");
}

// Runs `operation` on the controller and turns its failure into a text.
template <class Operation>
std::invoke_result_t<Operation, IController&> guarded(
    char const* function, IController* controller, char** errorText, Operation operation) {
    if (errorText != nullptr) {
        *errorText = nullptr;
    }
    try {
        if (controller == nullptr) {
            failWithNull(function, "controller");
        }
        return operation(*controller);
    } catch (std::exception const& error) {
        if (errorText != nullptr) {
            *errorText = strdup(error.what());
        }
    }
    return std::invoke_result_t<Operation, IController&>();
}

}  // namespace

int Adt_BulkView_Controller_Open(IController* controller, char** errorText) {
    return guarded(__func__, controller, errorText, [](IController& to) { return to.open(); });
}

void Adt_BulkView_Controller_Close(IController* controller, char** errorText, int unused) {
    guarded(__func__, controller, errorText, [=](IController& to) { to.close(unused); });
}

int Adt_BulkView_Controller_VtSize(IController* controller, char** errorText) {
    return guarded(__func__, controller, errorText, [](IController& to) { return to.vtsize(); });
}

int Adt_BulkView_Controller_Size(IController* controller, char** errorText, int axis) {
    return guarded(__func__, controller, errorText, [=](IController& to) { return to.size(axis); });
}

int Adt_BulkView_Controller_Brick(IController* controller, char** errorText, int unused, int x, int y, int z) {
    return guarded(__func__, controller, errorText, [=](IController& to) { return to.brick(unused, x, y, z); });
}

int Adt_BulkView_Controller_Offset(IController* controller, char** errorText, int unused, int x, int y, int z) {
    return guarded(__func__, controller, errorText, [=](IController& to) { return to.offset(unused, x, y, z); });
}

void* Adt_BulkView_Controller_Buffer(
    IController* controller, char** errorText, int unused, int memoryModel, void* unusedPointer, int brick,
    int writeFlag) {
    return guarded(__func__, controller, errorText, [=](IController& to) {
        return to.buffer(unused, modelOf(memoryModel), unusedPointer, brick, accessOf(writeFlag));
    });
}

void Adt_BulkView_Controller_BufferAndLinearInfo(
    IController* controller, char** errorText, int unused, int memoryModel, void* unusedPointer, int unused1,
    int unused2, int unused3, int writeFlag, void** buffer, int* info1, int* info2, int* info3, int* info4, int* info5,
    int* info6, int* info7, int* info8, int* info9) {
    char const* const function = __func__;
    guarded(function, controller, errorText, [=](IController& to) {
        if (buffer == nullptr) {
            failWithNull(function, "buffer");
        }
        for (int const* const info : {info1, info2, info3, info4, info5, info6, info7, info8, info9}) {
            if (info == nullptr) {
                failWithNull(function, "info");
            }
        }
        to.bufferAndLinearInfo(
            unused, modelOf(memoryModel), unusedPointer, unused1, unused2, unused3, accessOf(writeFlag), *buffer,
            *info1, *info2, *info3, *info4, *info5, *info6, *info7, *info8, *info9);
    });
}

void Adt_BulkView_Controller_Flush(IController* controller, char** errorText, int unused, void* unusedPointer) {
    guarded(__func__, controller, errorText, [=](IController& to) { to.flush(unused, unusedPointer); });
}

int Adt_BulkView_Controller_Features(IController* controller, char** errorText) {
    return guarded(__func__, controller, errorText, [](IController& to) -> int { return to.features(); });
}

void Adt_BulkView_Controller_SetHint(
    IController* controller, char** errorText, int unused1, int unused2, int unused3, int unused4, int unused5) {
    guarded(__func__, controller, errorText, [=](IController& to) {
        to.setHint(unused1, unused2, unused3, unused4, unused5);
    });
}
