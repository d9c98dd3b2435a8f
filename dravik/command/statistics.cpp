// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/commands.h"

#include "dravik/adt/logging/named_timer.h"
#include "dravik/command/picture.h"

#include <nlohmann/json.hpp>

#include <iomanip>
#include <iostream>
#include <utility>

namespace Quorvel::Dravik::Command {

namespace {

constexpr int kPercents[] = {1, 5, 25, 50, 75, 95, 99};

}  // namespace

void statistics(StatisticsWish const& wish, Session& session) {
    Adt::Logging::NamedTimer const timer("dravik: statistics");
    auto data = open(selected(inputOf(wish.input, session), wish.selection, session), session);
    auto const moments = momentsOf(data, session);
    std::vector<std::pair<std::string, double>> rows{
        {"min", moments.min()}, {"max", moments.max()}, {"mean", moments.mean()}, {"deviation", moments.deviation()}};
    if (moments.count() == 0) {
        rows.clear();
    } else {
        auto const histogram = histogramOf(data, moments, session);
        for (int const percent : kPercents) {
            rows.emplace_back(std::to_string(percent) + " %", percentile(histogram, moments, percent / 100.0));
        }
        if (!wish.histogram.empty()) {
            drawHistogram(histogram, data.data.info, wish.histogram, wish.mayReplace);
        }
    }
    if (wish.asJson) {
        nlohmann::ordered_json json{{"count", moments.count()}, {"missing", moments.missing()}};
        for (auto const& [name, value] : rows) {
            json[name] = value;
        }
        std::cout << json.dump(2) << '\n';
        return;
    }
    std::cout << "count      " << moments.count() << "\nmissing    " << moments.missing() << '\n';
    for (auto const& [name, value] : rows) {
        std::cout << std::left << std::setw(11) << name << std::setprecision(7) << value << '\n';
    }
    if (!data.data.info.valueUnit.empty()) {
        std::cout << "unit       " << data.data.info.valueUnit << '\n';
    }
}

}  // namespace Quorvel::Dravik::Command
