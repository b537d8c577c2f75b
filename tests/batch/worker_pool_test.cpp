#include "batch/worker_pool.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <thread>

#include "base/run_context.h"

namespace kv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

/// Runs tasks named by texts and takes down what becomes of each.
class WorkerPoolTest : public testing::Test {
protected:
    bool run(const std::vector<std::string>& tasks, WorkerSettings settings) {
        std::size_t at = 0;
        PoolEvents events;
        events.next = [&]() -> std::optional<Task> {
            if (at == tasks.size()) return {};
            ++at;
            return Task{at - 1, tasks[at - 1]};
        };
        events.message = [&](u64 id, char kind, std::string_view text) {
            results[id] += std::string(1, kind) + std::string(text);
        };
        events.done = [&](u64 id) {
            results[id] += "!";
            order.push_back(id);
        };
        events.lost = [&](u64 id, std::string_view why) { results[id] += "lost: " + std::string(why); };
        events.turn = [&](u64 id) { return "turn " + std::to_string(id); };
        events.goOn = [&] { return order.size() < stopAfter; };
        return WorkerPool(std::move(settings)).run(events);
    }
    std::map<u64, std::string> results;
    std::vector<u64> order; ///< in which tasks were done
    std::size_t stopAfter = SIZE_MAX;
};

void doTask(const Task& task, WorkerLine& line) {
    if (task.text == "abort") {
        ::signal(SIGABRT, SIG_DFL);
        ::raise(SIGABRT);
    }
    if (task.text == "hang") std::this_thread::sleep_for(1h);
    if (task.text == "exit") ::_exit(5);
    if (task.text == "memory") ::_exit(WorkerPool::kOutOfMemory);
    if (task.text == "killed") ::kill(::getpid(), SIGKILL);
    if (task.text == "sleep") std::this_thread::sleep_for(200ms);
    if (task.text == "half") {
        line.send('x', "begun");
        line.flush();
        ::kill(::getpid(), SIGKILL);
    }
    line.send('r', task.text);
}

TEST_F(WorkerPoolTest, ATaskThatEndsItsProcessCostsItselfAlone) {
    const std::vector<std::string> tasks{"a", "abort",  "b",      "exit", "hang",
                                         "c", "memory", "killed", "half", "d"};
    for (const unsigned workers : {1U, 2U, 8U}) {
        results.clear();
        ASSERT_TRUE(run(tasks, {workers, 300ms, {}, doTask}));
        EXPECT_EQ(results[0], "ra!");
        EXPECT_THAT(results[1], HasSubstr("lost: The process crashed"));
        EXPECT_EQ(results[2], "rb!");
        EXPECT_EQ(results[3], "lost: The process ended with status 5");
        EXPECT_EQ(results[4], "lost: It took longer than the time limit");
        EXPECT_EQ(results[5], "rc!");
        EXPECT_EQ(results[6], "lost: It needs more memory than the limit");
        EXPECT_EQ(results[7], "lost: The process was killed");
        EXPECT_EQ(results[8], "xbegunlost: The process was killed");
        EXPECT_EQ(results[9], "rd!");
    }
}

TEST_F(WorkerPoolTest, TurnsComeInTheOrderOfTasks) {
    const auto waiting = [](const Task& task, WorkerLine& line) {
        if (task.id % 3 == 0) std::this_thread::sleep_for(20ms);
        line.send('r', line.awaitTurn());
    };
    ASSERT_TRUE(run(std::vector<std::string>(12), {4, 10s, {}, waiting}));
    EXPECT_EQ(results[7], "rturn 7!");
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_EQ(order.size(), 12U);
}

TEST_F(WorkerPoolTest, AStopFinishesWhatIsInHand) {
    stopAfter = 1;
    ASSERT_TRUE(run({"a", "sleep", "b", "c", "d", "e", "f", "g"}, {2, 10s, {}, doTask}));
    EXPECT_EQ(results[0], "ra!");
    EXPECT_LT(results.size(), 8U);
    for (const auto& [id, result] : results) EXPECT_TRUE(result.ends_with('!')) << id;
}

TEST_F(WorkerPoolTest, LongMessagesArriveWhole) {
    const std::string text(3'000'000, 'x');
    const auto echo = [](const Task& task, WorkerLine& line) { line.send('r', task.text); };
    ASSERT_TRUE(run({text, "short"}, {2, 10s, {}, echo}));
    EXPECT_EQ(results[0].size(), text.size() + 2);
    EXPECT_EQ(results[1], "rshort!");
}

TEST_F(WorkerPoolTest, ProcessesThatCannotBeginEndTheRun) {
    EXPECT_FALSE(run({"a"}, {2, 10s, [] { return false; }, doTask}));
    EXPECT_THAT(runContext().error.message, HasSubstr("end before they begin"));
}

} // namespace
} // namespace kv
