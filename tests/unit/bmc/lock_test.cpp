#include "bmc/alveo/xmc.h"
#include "bmc/bittware/bmc.h"
#include "hw/accelerator.h"
#include "hw/core.h"
#include "support/rack.h"
#include "support/root_core.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ivra::bsp::bmc {
namespace {

constexpr int processes = 8;
constexpr int transactions = 50;

/// Does something that has one right outcome, again and again; returns how many times it was right.
using work_t = std::function<int()>;

template <class Attempt>
int right_attempts(Attempt is_right)
{
    int right = 0;
    for (int i = 0; i < transactions; ++i) {
        right += is_right() ? 1 : 0;
        ::sched_yield(); // so that they take turns on a small machine, too
    }
    return right;
}

/// Brings an XMC up, and reads its card information.
int use_xmc()
{
    const hw::core core = tests::root_core().enumerate(alveo::registers::xmc_hardware_id, 1).value().at(0);
    mutex guard{"bmc-alveo", core};
    locked(guard, [&] { alveo::bring_up(core); });
    alveo::xmc controller{core, guard};
    const alveo::card_info_t expected{{0x21, {'A', 'B', 'C', 'D', 'E'}}, {0x27, {}}, {0x30, {1, 2, 3, 4}}};
    return right_attempts([&] { return controller.read_card_info() == expected; });
}

/// Reads pieces of different sizes of a BMC's inventory, whose byte at n is n.
int use_bmc()
{
    bittware::bmc controller{tests::root_core()};
    std::uint8_t size = static_cast<std::uint8_t>(::getpid() % 32);
    return right_attempts([&] {
        size = static_cast<std::uint8_t>((size + 1) % 32);
        std::vector<std::uint8_t> expected(size);
        std::iota(expected.begin(), expected.end(), size);
        return controller.read_fru_data(size, size) == expected;
    });
}

/// Child processes that all work at once; returns how many of them were always right.
int processes_that_were_right(const work_t& work)
{
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            int right = 0;
            try {
                right = work();
            } catch (const std::exception& error) {
                std::cerr << error.what() << std::endl;
            }
            std::exit(right == transactions ? 0 : 1);
        }
        children.push_back(child);
    }
    int right = 0;
    for (const pid_t child : children) {
        int status = -1;
        ::waitpid(child, &status, 0);
        right += status == 0 ? 1 : 0;
    }
    return right;
}

/// First and last line of the trace in which a process used a controller while it held the lock.
struct use_t
{
    std::string process;
    std::size_t first;
    std::size_t last;
};

/// Every locked use of a controller in a trace, by calls that begin with `prefix`, in the order in which they began.
/// (The line of an unlock may come after those of the process that got the lock next.)
std::vector<use_t> uses(const std::string& trace, const std::string& prefix)
{
    std::vector<use_t> found;
    std::map<std::string, use_t> open;
    std::istringstream lines{trace};
    std::size_t number = 0;
    for (std::string line; std::getline(lines, line); ++number) {
        const std::string process = tests::split(line).at(1);
        if (line.find(" " + prefix + "read(") != std::string::npos ||
            line.find(" " + prefix + "write") != std::string::npos) {
            open.try_emplace(process, use_t{process, number, number}).first->second.last = number;
        } else if (line.find(" ivra_hw_shared_mutex_unlock(") != std::string::npos) {
            found.push_back(open.at(process));
            open.erase(process);
        }
    }
    EXPECT_TRUE(open.empty()) << "it was used without the lock";
    std::sort(found.begin(), found.end(), [](const use_t& a, const use_t& b) { return a.first < b.first; });
    return found;
}

void expect_one_at_a_time(const std::vector<use_t>& found)
{
    for (std::size_t i = 1; i < found.size(); ++i)
        EXPECT_LT(found[i - 1].last, found[i].first) << found[i - 1].process << " and " << found[i].process;
    std::size_t changes = 0;
    for (std::size_t i = 1; i < found.size(); ++i)
        changes += found[i].process == found[i - 1].process ? 0 : 1;
    EXPECT_GE(changes, std::size_t{processes}) << "they did not take turns";
}

TEST(controllers, an_xmc_is_used_by_one_process_at_a_time)
{
    tests::rack_t rack;
    rack.plug("xilinx_u50",
              {{"xmc", R"({"answer_after": "15 ms", "card": {"raw": "21054142434445270030040102030421015a"}})"}});
    const tests::run_t run = rack.in_child([] { std::cout << processes_that_were_right(&use_xmc); });
    EXPECT_EQ(run.out, std::to_string(processes)) << run.err;
    const std::vector<use_t> found = uses(rack.trace(), "ivra_hw_");
    EXPECT_EQ(found.size(), std::size_t{processes * (transactions + 1)}) << "a bring-up each, and the transactions";
    expect_one_at_a_time(found);
}

TEST(controllers, a_bmc_is_used_by_one_process_at_a_time)
{
    std::string image;
    for (unsigned byte = 0; byte < 64; ++byte)
        image += "0123456789abcdef"[byte / 16], image += "0123456789abcdef"[byte % 16];
    tests::rack_t rack;
    rack.plug("bittware_xupp3r", {{"bmc", R"({"fru": {"raw": ")" + image + R"("}})"}});
    rack.environment("IVRA_LOG_LEVEL=0");
    const tests::run_t run = rack.in_child([] { std::cout << processes_that_were_right(&use_bmc); });
    EXPECT_EQ(run.out, std::to_string(processes)) << run.err;
    const std::vector<use_t> found = uses(rack.trace(), "ivra_uart_");
    EXPECT_EQ(found.size(), std::size_t{processes * transactions});
    expect_one_at_a_time(found);
}

} // namespace
} // namespace ivra::bsp::bmc
