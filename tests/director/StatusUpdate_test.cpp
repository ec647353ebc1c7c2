// One reader answer after another on a goal of drivers d1 and d2: what the trust rule makes of
// the goal, of the mechanism element, of the drivers left and of the unproved count.

#include "common/scene.h"

#include <gtest/gtest.h>

TEST(TrustRule, AnswersEditTheGoalTheMechanismAndTheCount) {
    // name, trust, steps {driver index, answer}, goal/mechanism statuses, drivers left,
    // unproved count (unsigned arithmetic: a second decrement wraps)
    using step_t = std::pair<int, const char*>;
    const std::tuple<const char*, const char*, std::vector<step_t>, const char*, QStringList,
                     uint32_t>
        rows[] = {
            // clang-format off
        {"an untrusted proof is unreliable", "never", {{0, "Proved"}}, "UnreliablyProved/UnreliablyProved", {}, 0},
        {"a first proof leaves the other driver", "redundancy", {{0, "Proved"}}, "UnreliablyProved/UnreliablyProved", {"d2"}, 0},
        {"a trusted proof drops the other driver", "always", {{0, "Proved"}}, "Proved/Proved", {}, 0},
        {"a second proof counts twice", "redundancy", {{0, "Proved"}, {1, "Proved"}}, "Proved/Proved", {}, 0xffffffffu},
        {"a third proof starts over", "redundancy", {{0, "Proved"}, {1, "Proved"}, {0, "Proved"}}, "Proved/UnreliablyProved", {}, 0xffffffffu},
        {"an earlier unknown changes nothing", "always", {{0, "Unknown"}}, "Unproved/Unproved", {"d2"}, 1},
        {"the last unknown marks the mechanism only", "always", {{1, "Unknown"}}, "Unproved/Unknown", {"d1"}, 1},
        {"the last unknown after a first proof", "redundancy", {{0, "Proved"}, {1, "Unknown"}}, "UnreliablyProved/Unknown", {}, 0},
        {"a disproof drops the other driver", "always", {{0, "Disproved"}}, "Disproved/Disproved", {}, 0},
        {"a disproof after a first proof", "redundancy", {{0, "Proved"}, {1, "Disproved"}}, "Disproved/Disproved", {}, 0xffffffffu},
        {"a disproof leaves a proved goal", "always", {{0, "Proved"}, {1, "Disproved"}}, "Proved/Disproved", {}, 0},
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
        EXPECT_EQ(pos::strOfProofStatus(po.status), m.attribute("status")) << name;
        const auto [driver, answer] = steps.back();
        EXPECT_EQ(m.elementsByTagName("Driver").at(driver).toElement().attribute("status"), answer)
            << name;
        EXPECT_EQ(po.drivers, drivers) << name;
        EXPECT_EQ(director->getUnprovedCount(), unproved) << name;
    }
}
