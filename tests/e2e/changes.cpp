#include "changes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <map>
#include <numeric>
#include <sstream>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ivra::tests {

std::string shown(const rack_t& rack, const std::string& field)
{
    const run_t run = run_program(IVRA_VIRTUAL_COMMAND, {"show", (rack.folder() / "rack.json").string()},
                                  {"IVRA_VIRTUAL_STATE=" + (rack.folder() / "state").string(),
                                   "IVRA_VIRTUAL_CLOCK=" + (rack.folder() / "clock").string()});
    EXPECT_EQ(run.status, 0) << run.err;
    std::string lines;
    std::istringstream text{run.out};
    constexpr std::size_t indent = 3;
    constexpr std::size_t column = 18;
    bool is_in_field = false;
    for (std::string line; std::getline(text, line);) {
        if (line.size() < column)
            continue;
        if (line[indent] != ' ')
            is_in_field = line.substr(indent, column - indent).starts_with(field + " ");
        if (is_in_field)
            lines += line.substr(column) + "\n";
    }
    return lines;
}

std::string json(bool succeeded, const std::string& text, const std::vector<std::string>& log)
{
    std::string document = R"({"data":{},"status":{"success":)" + std::string{succeeded ? "true" : "false"};
    if (!succeeded)
        document += R"(,"message":")" + text + '"';
    document += R"(},"log":[)";
    for (const std::string& message : log)
        document += (document.back() == '[' ? "" : ",") + (R"({"type":"info","message":")" + message + R"("})");
    if (!succeeded)
        document += R"(,{"type":"error","message":")" + text + R"("})";
    return document + "]}\n";
}

std::vector<traced_call_t> traced_calls(const rack_t& rack)
{
    std::vector<traced_call_t> calls;
    std::map<std::string, std::size_t> made;
    for (const std::string& traced_line : traced(rack, " ivra_")) {
        const std::string line = traced_line.substr(1, traced_line.rfind(") = "));
        const std::string name = line.substr(0, line.find('('));
        if (name != "ivra_log_log")
            calls.push_back({line, name, ++made[name]});
    }
    return calls;
}

std::vector<std::size_t> chosen_of_a_load(const std::vector<traced_call_t>& calls, std::size_t step)
{
    std::vector<std::size_t> chosen;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        const std::size_t nth = calls[i].nth;
        if (calls[i].name != "ivra_i2c_bus_write_register" || nth <= 10 || nth >= 520 || nth % step == 0 ||
            calls[i].line.find("0x68, 0x1, ") != std::string::npos)
            chosen.push_back(i);
    }
    return chosen;
}

namespace {

std::vector<std::string> changes_among(const std::vector<traced_call_t>& calls, const std::vector<std::string>& changes)
{
    std::vector<std::string> found;
    for (const traced_call_t& call : calls)
        if (std::ranges::any_of(changes, [&](const std::string& change) { return call.line.starts_with(change); }))
            found.push_back(call.line);
    return found;
}

} // namespace

void expect_killing_leaves_a_beginning(const victim_t& victim)
{
    rack_t whole;
    victim.plug(whole);
    const run_t expected = whole.run(victim.words);
    ASSERT_EQ(expected.status, 0) << expected.err;
    const std::vector<traced_call_t> calls = traced_calls(whole);
    const std::vector<std::string> prescribed = changes_among(calls, victim.changes);
    ASSERT_FALSE(prescribed.empty());
    victim.check(whole, prescribed.size());

    std::vector<std::size_t> positions(calls.size());
    std::iota(positions.begin(), positions.end(), 0U);
    if (victim.choose)
        positions = victim.choose(calls);
    for (std::size_t step = 0; step < positions.size(); step += IVRA_SWEEP_STEP) {
        const std::size_t position = positions[step];
        SCOPED_TRACE("killed after call " + std::to_string(position) + ": " + calls[position].line);
        rack_t rack;
        victim.plug(rack);
        rack.faults(calls[position].fault(R"("kill": "after")"));
        const run_t killed = rack.run(victim.words);
        ASSERT_EQ(killed.status, 128 + SIGKILL) << killed.out << killed.err << rack.trace();
        ASSERT_EQ(traced_calls(rack).size(), position + 1);
        const std::vector<std::string> done = changes_among(traced_calls(rack), victim.changes);
        ASSERT_LE(done.size(), prescribed.size());
        ASSERT_EQ(done, std::vector<std::string>(prescribed.begin(),
                                                 prescribed.begin() + static_cast<std::ptrdiff_t>(done.size())));
        rack.environment("IVRA_VIRTUAL_FAULTS");
        victim.check(rack, done.size());

        const run_t next = rack.run(victim.words);
        ASSERT_EQ(next.status, 0) << next.err;
        ASSERT_EQ(next.out, expected.out);
        victim.check(rack, prescribed.size());
        if (testing::Test::HasFailure())
            return; // one is enough to read
    }
}

void expect_failure(const run_t& run, const std::string& before, const std::string& part, const std::string& text)
{
    EXPECT_EQ(run.out, before + part + "fail\n");
    EXPECT_EQ(run.err, text + "\n");
    EXPECT_EQ(run.status, 1);
}

bool holds_signals(::pid_t process)
{
    std::ifstream status{"/proc/" + std::to_string(process) + "/status"};
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("SigBlk:"))
            return (std::stoull(line.substr(7), nullptr, 16) >> (SIGTERM - 1) & 1U) != 0;
    return false;
}

run_t run_and_signal(rack_t& rack, const std::string& words, int signal, const std::function<bool(::pid_t)>& is_time,
                     streams_t streams)
{
    rack.environment("IVRA_VIRTUAL_CLOCK");
    std::array<int, 2> over{}; // the end of this pipe tells the sender that the command has ended
    EXPECT_EQ(::pipe2(over.data(), O_CLOEXEC), 0);
    const ::pid_t sender = ::fork();
    if (sender == 0) {
        ::close(over[1]);
        ::pollfd end{.fd = over[0], .events = POLLIN, .revents = 0};
        do {
            std::istringstream trace{rack.trace()}; // its second word is the process
            std::string seconds;
            ::pid_t process = 0;
            if (trace >> seconds >> process && is_time(process))
                ::_exit(::kill(process, signal) == 0 ? 0 : 1);
        } while (::poll(&end, 1, 1) == 0);
        ::_exit(1);
    }
    ::close(over[0]);
    const run_t run = rack.run(words, streams);
    ::close(over[1]);
    int status = 0;
    EXPECT_EQ(::waitpid(sender, &status, 0), sender);
    EXPECT_EQ(status, 0) << "it was never the time to send the signal";
    return run;
}

first_board_t::first_board_t()
{
    EXPECT_GE(ivra_hw_enumerate_all_accelerators(&descriptor_, 1), 1);
    accelerator_ = ivra_hw_accelerator_get(descriptor_);
    EXPECT_GE(ivra_hw_accelerator_enumerate_all_mmios(accelerator_, &space_, 1), 1);
    mmio_ = ivra_hw_mmio_create(space_);
    tree_ = ivra_hw_enumerate_cores(mmio_);
    EXPECT_NE(tree_, nullptr);
}

first_board_t::~first_board_t()
{
    ivra_hw_destroy_tree(tree_);
    ivra_hw_mmio_destroy(mmio_);
    ivra_hw_mmio_put_descriptor(space_);
    ivra_hw_accelerator_put(accelerator_);
    ivra_hw_accelerator_put_descriptor(descriptor_);
}

} // namespace ivra::tests
