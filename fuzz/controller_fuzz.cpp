// SPDX-License-Identifier: Apache-2.0
// The plain functions of the brick controller with arbitrary arguments, null in any place: a result, or a text that
// says what was wrong; never a crash, and never the address of another sample.

#include "dravik/adt/bulkview/old/controller_adapter.h"
#include "dravik/adt/bulkview/old/controller_functions.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/plain_array.h"

#include "input.h"

#include <cstdlib>

namespace Quorvel::Dravik::Adt::Fuzz {
namespace {

using BulkView::Old::ControllerAdapter;
using Model = Testing::PlainArray<short>;

/// A place for an error text, now and then none; frees what arrives there.
class ErrorText {
  public:
    explicit ErrorText(Input& input) : wanted_(!input.flag() || !input.flag()) {}
    ErrorText(ErrorText const&) = delete;
    ErrorText& operator=(ErrorText const&) = delete;
    ~ErrorText() { std::free(text_); }

    char** place() { return wanted_ ? &text_ : nullptr; }
    bool isSet() const { return text_ != nullptr; }
    /// Whether there was no failure, as far as anybody can tell.
    bool isClear() const { return wanted_ && text_ == nullptr; }

  private:
    bool wanted_;
    char* text_ = nullptr;
};

class Script {
  public:
    explicit Script(Input& input)
        : input_(input),
          model_({input.between(1, 6), input.between(1, 6), input.between(1, 6), input.between(1, 2)}),
          controller_(makeBricks(), sizeof(short)) {}

    void step() {
        ErrorText error(input_);
        auto* const controller = input_.between(0, 15) == 0 ? nullptr : &controller_;
        switch (input_.between(0, 12)) {
        case 0:
            Adt_BulkView_Controller_Open(controller, error.place());
            break;
        case 1:
            if (input_.between(0, 15) != 0) {
                return;  // rarely: nothing is left to ask afterwards
            }
            Adt_BulkView_Controller_Close(controller, error.place(), input_.anyInt());
            isClosed_ = isClosed_ || controller != nullptr;
            break;
        case 2:
            Adt_BulkView_Controller_VtSize(controller, error.place());
            break;
        case 3:
            checkSize(controller, error);
            break;
        case 4:
            Adt_BulkView_Controller_Brick(
                controller, error.place(), input_.anyInt(), input_.anyInt(), input_.anyInt(), input_.anyInt());
            break;
        case 5:
            Adt_BulkView_Controller_Offset(
                controller, error.place(), input_.anyInt(), input_.anyInt(), input_.anyInt(), input_.anyInt());
            break;
        case 6:
            checkLinearInfo(controller, error);
            break;
        case 7:
            Adt_BulkView_Controller_Flush(controller, error.place(), input_.anyInt(), nullptr);
            break;
        case 8:
            Adt_BulkView_Controller_Features(controller, error.place());
            break;
        default:
            checkBuffer(controller, error);
        }
        require(controller != nullptr || error.isSet() || !error.isClear(), "a null controller without a text");
    }

  private:
    std::unique_ptr<BulkView::IBufferAccessor> makeBricks() {
        short value = 0;
        for (short& sample : model_.samples()) {
            sample = value++;
        }
        Testing::BrickOptions options;
        options.brickSize = {input_.between(1, 4), input_.between(1, 4), input_.between(1, 4), 1};
        options.hasMemory = !input_.flag() || !input_.flag();
        hasMemory_ = options.hasMemory;
        return std::make_unique<Testing::BrickAccessor<short>>(model_, options);
    }

    void checkSize(Adt_BulkView_Controller* controller, ErrorText& error) {
        int const axis = input_.anyInt();
        int const size = Adt_BulkView_Controller_Size(controller, error.place(), axis);
        bool const valid = controller != nullptr && 0 <= axis && axis < 3;
        require(size == (valid ? model_.size()[axis] : 0), "size", axis, size);
        require(!valid || !error.isSet(), "a text for a valid axis", axis);
    }

    void checkBuffer(Adt_BulkView_Controller* controller, ErrorText& error) {
        int const sizeX = model_.size()[0];
        int const sizeY = model_.size()[1];
        int const sizeZ = model_.size()[2];
        int const brick = input_.flag() ? input_.between(0, sizeX * sizeY * sizeZ - 1) : input_.anyInt();
        int const memoryModel = input_.flag() ? 0 : input_.anyInt();
        void* const memory = Adt_BulkView_Controller_Buffer(
            controller, error.place(), input_.anyInt(), memoryModel, nullptr, brick, input_.anyInt());
        bool const valid = controller != nullptr && memoryModel == 0 && !isClosed_ && hasMemory_ && 0 <= brick &&
                           brick < sizeX * sizeY * sizeZ;
        require((memory != nullptr) == valid, "memory", brick, memoryModel, memory);
        if (memory != nullptr) {
            FixedVector<4, int> const index(brick % sizeX, brick / sizeX % sizeY, brick / (sizeX * sizeY), 0);
            short sample = 0;
            std::memcpy(&sample, memory, sizeof sample);
            require(sample == model_.at(index), "the address of another sample", brick, sample, model_.at(index));
        }
    }

    void checkLinearInfo(Adt_BulkView_Controller* controller, ErrorText& error) {
        int numbers[9] = {};
        int* places[9];
        for (int i = 0; i < 9; ++i) {
            places[i] = input_.between(0, 40) == 0 ? nullptr : &numbers[i];
        }
        void* memory = &numbers;
        void** const place = input_.between(0, 20) == 0 ? nullptr : &memory;
        Adt_BulkView_Controller_BufferAndLinearInfo(
            controller, error.place(), input_.anyInt(), input_.anyInt(), nullptr, input_.anyInt(), input_.anyInt(),
            input_.anyInt(), input_.anyInt(), place, places[0], places[1], places[2], places[3], places[4], places[5],
            places[6], places[7], places[8]);
        require(place != nullptr || !error.isClear(), "no place for the memory, and no text");
    }

    Input& input_;
    Model model_;
    bool hasMemory_ = true;
    bool isClosed_ = false;
    ControllerAdapter controller_;
};

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace Quorvel::Dravik::Adt::Fuzz;
    Input input(data, size);
    Script script(input);
    for (int steps = 0; steps < 300 && !input.isEmpty(); ++steps) {
        script.step();
    }
    return 0;
}
