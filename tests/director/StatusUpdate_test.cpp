// The trust rule alone, then its edits of the document and of the unproved count.

#include "common/scene.h"
#include "director/ProofDirector_p.h"

#include <gtest/gtest.h>

using namespace pos;

TEST(TrustRule, EachAnswerHasItsEffect) {
    const mechanism::trust_t NEVER = mechanism::TRUST_NEVER, REDUNDANCY = mechanism::TRUST_REDUNDANCY,
                             ALWAYS = mechanism::TRUST_ALWAYS;
    const bool LAST = true, EARLIER = false;
    const struct {
        const char* name;
        mechanism::trust_t trust;
        status_t old;
        const char* answer;
        bool lastDriver;
        director::answer_effect_t effect; // next, setElement, clearDrivers, mayUpdateGoal
    } rows[] = {
        // clang-format off
        {"never x unproved x Proved", NEVER, UNPROVED, "Proved", EARLIER, {UNRELIABLY_PROVED, true, true, true}},
        {"never x unreliably proved x Proved", NEVER, UNRELIABLY_PROVED, "Proved", LAST, {UNRELIABLY_PROVED, false, true, true}},
        {"always x unproved x Proved", ALWAYS, UNPROVED, "Proved", EARLIER, {PROVED, true, true, true}},
        {"always x proved x Proved", ALWAYS, PROVED, "Proved", LAST, {PROVED, false, true, true}},
        {"redundancy x unproved x Proved", REDUNDANCY, UNPROVED, "Proved", EARLIER, {UNRELIABLY_PROVED, true, false, true}},
        {"redundancy x unreliably proved x Proved", REDUNDANCY, UNRELIABLY_PROVED, "Proved", LAST, {PROVED, true, true, true}},
        {"redundancy x proved x Proved starts over", REDUNDANCY, PROVED, "Proved", EARLIER, {UNRELIABLY_PROVED, true, false, true}},
        {"never x unproved x Disproved", NEVER, UNPROVED, "Disproved", EARLIER, {DISPROVED, true, true, true}},
        {"always x proved x Disproved", ALWAYS, PROVED, "Disproved", LAST, {DISPROVED, true, true, true}},
        {"redundancy x disproved x Disproved", REDUNDANCY, DISPROVED, "Disproved", EARLIER, {DISPROVED, false, true, true}},
        {"always x unproved x Unknown by an earlier driver", ALWAYS, UNPROVED, "Unknown", EARLIER, {UNPROVED, false, false, false}},
        {"always x unproved x Unknown by the last driver", ALWAYS, UNPROVED, "Unknown", LAST, {UNKNOWN, true, false, false}},
        {"never x unknown x Unknown by the last driver", NEVER, UNKNOWN, "Unknown", LAST, {UNKNOWN, false, false, false}},
        {"redundancy x unreliably proved x Unknown by an earlier driver", REDUNDANCY, UNRELIABLY_PROVED, "Unknown", EARLIER, {UNRELIABLY_PROVED, false, false, true}},
        {"redundancy x unreliably proved x Unknown by the last driver", REDUNDANCY, UNRELIABLY_PROVED, "Unknown", LAST, {UNKNOWN, true, false, false}},
        // clang-format on
    };
    for (const auto& row : rows) {
        const director::answer_effect_t e =
            director::effectOfAnswer(row.trust, row.old, row.answer, row.lastDriver);
        EXPECT_EQ(e.next, row.effect.next) << row.name;
        EXPECT_EQ(e.setElement, row.effect.setElement) << row.name;
        EXPECT_EQ(e.clearDrivers, row.effect.clearDrivers) << row.name;
        EXPECT_EQ(e.mayUpdateGoal, row.effect.mayUpdateGoal) << row.name;
    }
}

TEST(TrustRule, AnswersEditTheGoalTheMechanismAndTheCount) {
    const struct {
        const char *name, *trust;
        std::vector<std::pair<int, const char*>> steps; // driver index, answer
        const char *goal, *mechanism;
        QStringList drivers;
        uint32_t unproved; // unsigned arithmetic: a second decrement wraps
    } rows[] = {
        // clang-format off
        {"a first proof leaves the other driver", "redundancy", {{0, "Proved"}}, "UnreliablyProved", "UnreliablyProved", {"d2"}, 0},
        {"a trusted proof drops the other driver", "always", {{0, "Proved"}}, "Proved", "Proved", {}, 0},
        {"a second proof counts twice", "redundancy", {{0, "Proved"}, {1, "Proved"}}, "Proved", "Proved", {}, 0xffffffffu},
        {"an earlier unknown changes nothing", "always", {{0, "Unknown"}}, "Unproved", "Unproved", {"d2"}, 1},
        {"the last unknown marks the mechanism only", "always", {{1, "Unknown"}}, "Unproved", "Unknown", {"d1"}, 1},
        {"a disproof after a proof", "always", {{0, "Proved"}, {1, "Disproved"}}, "Proved", "Disproved", {}, 0},
        // clang-format on
    };
    for (const auto& row : rows) {
        scene::Scene s;
        s.writeMechanism(row.trust, {"d1", "d2"});
        s.writePos({{"G", {scene::GoalSpec{"Unproved", "Unproved", true, "Unproved",
                                           {{"d1", "Proved"}, {"d2", "Disproved"}}}}}});
        auto director = s.director();
        ASSERT_TRUE(director->reloadPosFile());
        for (const auto& step : row.steps) {
            director->setDriver(director->getMechanism().drivers.at(step.first));
            director->updateStatus({0, 0}, step.second);
        }
        const ProofDirector::po_data_t& po = director->getPoTable()[0].second[0];
        EXPECT_EQ(po.element.parentNode().toElement().attribute("status"), row.goal) << row.name;
        EXPECT_EQ(po.element.attribute("status"), row.mechanism) << row.name;
        EXPECT_EQ(po.drivers, row.drivers) << row.name;
        EXPECT_EQ(director->getUnprovedCount(), row.unproved) << row.name;
        QDomElement d = po.element.firstChildElement("Driver");
        if (row.steps.back().first == 1)
            d = d.nextSiblingElement("Driver");
        EXPECT_EQ(d.attribute("status"), row.steps.back().second) << row.name;
    }
}
