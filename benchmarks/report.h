// SPDX-License-Identifier: Apache-2.0
#pragma once

// Report: figures of contests as a section of the tables that ./dev bench writes. Threads: one.

#include "contest.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {

/// The most that a figure may be.
struct Wanted {
    double atMost = 0;          ///< 0: nothing is wanted
    char const* why = nullptr;  ///< what is known about a figure that is larger
};

/// One subject: a table with a row per comparison, and below it why rows fall short. Printed as Markdown when it goes.
///
/// tools/performance.py counts the rows by their last two columns.
class Report {
  public:
    Report(std::string subject, std::string about) : subject_(std::move(subject)), about_(std::move(about)) {}
    Report(Report const&) = delete;
    Report& operator=(Report const&) = delete;
    ~Report() { print(); }

    /// How many times as long `ours` takes as `peer`.
    void ratio(Contest const& contest, std::string const& ours, std::string const& peer, Wanted wanted = {}) {
        std::string const what = whatOf(contest, ours);
        if (!contest.has(peer)) {
            rows_.push_back({what, peer, "not installed", "", limit(wanted, ""), false, wanted});
            return;
        }
        add(what, peer, contest.ratio(ours, peer), wanted, "");
    }

    /// As `ratio`, beside whichever of `peers` is the fastest.
    void ratioToBest(
        Contest const& contest, std::string const& ours, std::vector<std::string> peers, Wanted wanted = {}) {
        std::erase_if(peers, [&](std::string const& peer) { return !contest.has(peer); });
        std::string const best =
            *std::min_element(peers.begin(), peers.end(), [&](auto const& left, auto const& right) {
                return contest.nanoseconds(left).median < contest.nanoseconds(right).median;
            });
        std::string others;
        for (std::string const& peer : peers) {
            others += peer == best ? "" : ", " + peer;
        }
        add(whatOf(contest, ours), best + (others.empty() ? "" : " (better than " + others.substr(2) + ")"),
            contest.ratio(ours, best), wanted, "");
    }

    /// The time of one of the `parts` that `ours` does in a call, in nanoseconds.
    void time(Contest const& contest, std::string const& ours, int parts, Wanted wanted = {}) {
        Spread const all = contest.nanoseconds(ours);
        add(whatOf(contest, ours), "", {all.low / parts, all.median / parts, all.high / parts}, wanted, " ns");
    }

    /// A figure that is no time.
    void value(std::string what, std::string beside, double figure, Wanted wanted = {}) {
        add(std::move(what), std::move(beside), {figure, figure, figure}, wanted, "");
    }

  private:
    struct Row {
        std::string what, peer, figure, spread, wanted;
        bool fallsShort;
        Wanted target;
    };

    static std::string whatOf(Contest const& contest, std::string const& ours) {
        return ours.empty() ? contest.title() : contest.title() + ": " + ours;
    }

    /// Three digits, or two behind the point.
    static std::string shown(double figure) {
        char text[32];
        std::snprintf(text, sizeof text, "%.*f", figure >= 100 ? 0 : figure >= 10 ? 1 : figure >= 0.1 ? 2 : 3, figure);
        return text;
    }

    static std::string limit(Wanted wanted, std::string const& unit) {
        char text[32];
        std::snprintf(text, sizeof text, "%g", wanted.atMost);
        return wanted.atMost == 0 ? "" : text + unit;
    }

    void add(std::string what, std::string peer, Spread figure, Wanted wanted, std::string const& unit) {
        // Compared as shown, so that nobody has to guess at hidden digits.
        double const median = std::stod(shown(figure.median));
        bool const isAsFastAsThePeer = unit.empty() && median <= 1;
        bool const fallsShort = wanted.atMost != 0 && median > wanted.atMost && !isAsFastAsThePeer;
        rows_.push_back(
            {std::move(what), std::move(peer), shown(figure.median) + unit,
             shown(figure.low) + " – " + shown(figure.high), limit(wanted, unit), fallsShort, wanted});
    }

    void print() const {
        std::printf("## %s\n\n%s\n\n", subject_.c_str(), about_.c_str());
        std::printf("| what | beside | figure | half of the rounds | at most | |\n|---|---|---|---|---|---|\n");
        for (Row const& row : rows_) {
            std::printf(
                "| %s | %s | %s | %s | %s | %s |\n", row.what.c_str(), row.peer.c_str(), row.figure.c_str(),
                row.spread.c_str(), row.wanted.c_str(), row.fallsShort ? "**falls short**" : "");
        }
        std::printf("\n");
        printReasons();
    }

    // Each reason once, behind all rows that it holds for.
    void printReasons() const {
        std::vector<std::pair<std::string, std::string>> reasons;
        for (Row const& row : rows_) {
            if (!row.fallsShort) {
                continue;
            }
            std::string const why = row.target.why != nullptr ? row.target.why : "not understood yet.";
            auto known =
                std::find_if(reasons.begin(), reasons.end(), [&](auto const& each) { return each.first == why; });
            if (known == reasons.end()) {
                reasons.emplace_back(why, row.what);
            } else if (!known->second.ends_with(row.what)) {
                known->second += "; " + row.what;
            }
        }
        for (auto const& [why, rows] : reasons) {
            std::printf("- *%s* — %s\n", rows.c_str(), why.c_str());
        }
        if (!reasons.empty()) {
            std::printf("\n");
        }
    }

    std::string subject_;
    std::string about_;
    std::vector<Row> rows_;
};

}  // namespace Quorvel::Dravik::Adt::Benchmarks
