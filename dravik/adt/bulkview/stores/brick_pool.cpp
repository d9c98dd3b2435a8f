// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/brick_pool.h"

#include "dravik/adt/bulkview/stores/detail/brick_table.h"

#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

BrickPool::BrickPool(std::int64_t byteBudget, Diagnostics diagnostics) {
    if (byteBudget < 0) {
        throw std::invalid_argument(
            "[BrickPool] Invalid argument: the budget is " + std::to_string(byteBudget) + " bytes.");
    }
    table_ = std::make_shared<Detail::BrickTable>(byteBudget, std::move(diagnostics));
}

BrickPool::~BrickPool() {
    table_->close();
}

std::int64_t BrickPool::byteBudget() const noexcept {
    return table_->byteBudget();
}

BrickPool::Counters BrickPool::counters() const {
    return table_->counters();
}

void BrickPool::flush() {
    table_->flush(nullptr);
}

void BrickPool::clear() {
    table_->clear();
}

}  // namespace Quorvel::Dravik::Adt::BulkView
