// The trust rule alone, then its edits of the document and of the unproved count.

#include "common/scene.h"
#include "director/ProofDirector_p.h"

#include <gtest/gtest.h>

using namespace pos;

TEST(TrustRule, EachAnswerHasItsEffect) {
    const mechanism::trust_t NEVER = mechanism::TRUST_NEVER, ALWAYS = mechanism::TRUST_ALWAYS,
                             REDUNDANCY = mechanism::TRUST_REDUNDANCY;
    const bool LAST = true, EARLIER = false;
    // name, trust, old status, answer, by the last driver,
    // effect {next, setElement, clearDrivers, mayUpdateGoal}
    const std::tuple<const char*, mechanism::trust_t, status_t, const char*, bool,
                     director::answer_effect_t>
        rows[] = {
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
    for (const auto& [name, trust, old, answer, lastDriver, x] : rows) {
        const auto e = director::effectOfAnswer(trust, old, answer, lastDriver);
        EXPECT_EQ(std::tie(e.next, e.setElement, e.clearDrivers, e.mayUpdateGoal),
                  std::tie(x.next, x.setElement, x.clearDrivers, x.mayUpdateGoal))
            << name;
    }
}

TEST(TrustRule, AnswersEditTheGoalTheMechanismAndTheCount) {
    // name, trust, steps {driver index, answer}, goal/mechanism statuses, drivers left,
    // unproved count (unsigned arithmetic: a second decrement wraps)
    using step_t = std::pair<int, const char*>;
    const std::tuple<const char*, const char*, std::vector<step_t>, const char*, QStringList,
                     uint32_t>
        rows[] = {
            // clang-format off
        {"a first proof leaves the other driver", "redundancy", {{0, "Proved"}}, "UnreliablyProved/UnreliablyProved", {"d2"}, 0},
        {"a trusted proof drops the other driver", "always", {{0, "Proved"}}, "Proved/Proved", {}, 0},
        {"a second proof counts twice", "redundancy", {{0, "Proved"}, {1, "Proved"}}, "Proved/Proved", {}, 0xffffffffu},
        {"an earlier unknown changes nothing", "always", {{0, "Unknown"}}, "Unproved/Unproved", {"d2"}, 1},
        {"the last unknown marks the mechanism only", "always", {{1, "Unknown"}}, "Unproved/Unknown", {"d1"}, 1},
        {"a disproof after a proof", "always", {{0, "Proved"}, {1, "Disproved"}}, "Proved/Disproved", {}, 0},
            // clang-format on
        };
    scene::GoalSpec start;
    start.drivers = {{"d1", "Proved"}, {"d2", "Disproved"}};
    for (const auto& [name, trust, steps, statuses, drivers, unproved] : rows) {
        scene::Scene s;
        s.writeMechanism(trust, {"d1", "d2"});
        s.writePos({{"G", {start}}});
        auto director = s.director();
        ASSERT_TRUE(director->reloadPosFile());
        for (const auto& step : steps) {
            director->setDriver(director->getMechanism().drivers.at(step.first));
            director->updateStatus({0, 0}, step.second);
        }
        const ProofDirector::po_data_t& po = director->getPoTable()[0].second[0];
        const QDomElement m = po.element, goal = m.parentNode().toElement();
        EXPECT_EQ((goal.attribute("status") + "/" + m.attribute("status")).toStdString(), statuses)
            << name;
        const auto [driver, answer] = steps.back();
        EXPECT_EQ(m.elementsByTagName("Driver").at(driver).toElement().attribute("status"), answer)
            << name;
        EXPECT_EQ(po.drivers, drivers) << name;
        EXPECT_EQ(director->getUnprovedCount(), unproved) << name;
    }
}
