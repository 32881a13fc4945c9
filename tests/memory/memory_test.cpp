// The program where there is no memory: each request of its own for some fails in turn, those of the platform libraries
// never.

#include "support/rack.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <ivra/log.h>
#include <link.h>
#include <sys/mman.h>
#include <unwind.h>

int board_main(int argc, char** argv);

namespace {

constexpr std::size_t most_requests = 100000;

/// What is known of the requests of a process: whether each is of this program (1) or of the platform libraries (0).
struct requests_t
{
    std::size_t count;
    std::uint8_t is_ours[most_requests];
};

requests_t* noted = nullptr; ///< where the requests are noted, by the process that only counts them
std::size_t made = 0;        ///< requests so far
std::size_t failing = 0;     ///< number of the request to fail, from 1
bool is_armed = false;

/// Where the code of the platform libraries is.
struct range_t
{
    std::uintptr_t begin;
    std::uintptr_t end;
};

range_t platform[32];
std::size_t platform_count = 0;

int note_platform(dl_phdr_info* info, std::size_t, void*)
{
    if (std::string_view{info->dlpi_name}.find("/ivra-virtual/") == std::string_view::npos)
        return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto& segment = info->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0 && platform_count < std::size(platform)) {
            const std::uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
            platform[platform_count++] = {begin, begin + segment.p_memsz};
        }
    }
    return 0;
}

ivra_log_handler log_handler = nullptr; ///< of this program, although the platform calls it

_Unwind_Reason_Code look_for_platform(_Unwind_Context* context, void* found)
{
    if (_Unwind_GetRegionStart(context) == reinterpret_cast<std::uintptr_t>(log_handler))
        return _URC_END_OF_STACK;
    const std::uintptr_t at = _Unwind_GetIP(context);
    for (std::size_t i = 0; i < platform_count; ++i)
        if (at >= platform[i].begin && at < platform[i].end)
            *static_cast<bool*>(found) = true;
    return _URC_NO_REASON;
}

/// Whether no platform call runs.
bool is_request_ours()
{
    bool is_platform = false;
    _Unwind_Backtrace(&look_for_platform, &is_platform);
    return !is_platform;
}

void* request(std::size_t size)
{
    if (is_armed) {
        ++made;
        if (noted != nullptr && made <= most_requests) {
            noted->is_ours[made - 1] = is_request_ours() ? 1 : 0;
            noted->count = made;
        }
        if (made == failing && is_request_ours())
            return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

} // namespace

/// The library's, which also lets this program know.
void ivra_log_set_handler(ivra_log_handler handler)
{
    log_handler = handler;
    const auto next = reinterpret_cast<decltype(&ivra_log_set_handler)>(::dlsym(RTLD_NEXT, "ivra_log_set_handler"));
    next(handler);
}

void* operator new(std::size_t size)
{
    if (void* memory = request(size))
        return memory;
    throw std::bad_alloc{};
}

void* operator new[](std::size_t size)
{
    if (void* memory = request(size))
        return memory;
    throw std::bad_alloc{};
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return request(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace ivra::tests {
namespace {

/// Runs the program with these words; request number `fails` fails, or none (0).
run_t run(rack_t& rack, const std::string& line, std::size_t fails)
{
    return rack.in_child([&] {
        std::vector<std::string> words = split("ivra-bsp-board " + line);
        std::vector<char*> pointers;
        for (std::string& word : words)
            pointers.push_back(word.data());
        failing = fails;
        is_armed = true;
        std::exit(board_main(static_cast<int>(pointers.size()), pointers.data()));
    });
}

const std::string no_memory = "Out of memory\n";
const std::string remark = "recv_data: Data remains after end of IPMI transaction.\n"; // of the BMC's line

/// Whether this is the beginning of what a command says otherwise, or would be but for one remark that got lost.
bool is_beginning(const std::string& out, const std::string& whole)
{
    if (whole.starts_with(out))
        return true;
    for (std::size_t at = 0; (at = whole.find(remark, at)) != std::string::npos; ++at)
        if ((whole.substr(0, at) + whole.substr(at + remark.size())).starts_with(out))
            return true;
    return false;
}

/// Lets each request of a command's own fail in turn. A command that cannot get memory says so, fails, has released
/// everything, and has said nothing but the beginning of what it says otherwise.
void expect_told(const std::function<void(rack_t&)>& plug, const std::string& line)
{
    dl_iterate_phdr(&note_platform, nullptr);
    auto* counted = static_cast<requests_t*>(
        ::mmap(nullptr, sizeof(requests_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(counted, MAP_FAILED);
    ASSERT_GT(platform_count, 0U);

    rack_t rack;
    plug(rack);
    const run_t whole = run(rack, line, 0); // makes the state of the board, too
    ASSERT_EQ(whole.status, 0) << whole.err;
    noted = counted;
    const run_t again = run(rack, line, 0);
    noted = nullptr;
    ASSERT_EQ(again.out, whole.out);
    ASSERT_LT(counted->count, most_requests);

    const bool is_json = line.starts_with("--json");
    std::size_t told = 0;
    for (std::size_t n = 1; n <= counted->count; n += IVRA_SWEEP_STEP) {
        if (counted->is_ours[n - 1] == 0)
            continue;
        const run_t r = run(rack, line, n);
        SCOPED_TRACE(line + ", request " + std::to_string(n) + " of " + std::to_string(counted->count));
        if (r.err.ends_with(no_memory)) {
            ++told;
            EXPECT_EQ(r.status, 1);
            EXPECT_EQ(r.out.find("fail"), std::string::npos) << "of the action is not known";
            if (is_json)
                EXPECT_EQ(r.out, "");
            else
                EXPECT_TRUE(is_beginning(r.out, whole.out)) << r.out;
        } else { // it did without
            EXPECT_EQ(r.out, whole.out);
            EXPECT_EQ(r.err, whole.err);
            EXPECT_EQ(r.status, 0);
        }
        if (testing::Test::HasFailure())
            return; // one is enough to read
    }
    EXPECT_GT(told * IVRA_SWEEP_STEP, 100U);
    ::munmap(counted, sizeof(requests_t));
}

void plug_bmc(rack_t& rack)
{
    rack.plug("bittware_xupp3r", {{"bmc", R"({"latency": "1 ms", "boot_image": "primary",
        "sensors": {"only": true, "list": [{"name": "12V0", "unit": "V", "value": 12, "m": 1}]}})"}});
}

void plug_cages(rack_t& rack)
{
    rack.plug("xilinx_u200",
              {{"xmc", R"({"ready_after": ["0 s", "0 s"]})"}, {"i2c", R"({"cages": ["sfp-10g-sr", "qsfpdd-dr4"]})"}});
}

void plug_switch(rack_t& rack)
{
    rack.plug("m48l_xcvu7p")
        .host({.serial = "a-serial-longer-than-a-string-holds\n", .address = "00:1c:73:00:00:01\n"});
}

TEST(memory, that_runs_out_in_a_list_is_told)
{
    expect_told(&plug_bmc, "list");
    expect_told(&plug_bmc, "--json list");
}

TEST(memory, that_runs_out_in_a_report_is_told)
{
    expect_told(&plug_bmc, "show sensors");
    expect_told(&plug_switch, "show info");
    expect_told(&plug_cages, "--json show transceivers");
}

TEST(memory, that_runs_out_in_a_change_is_told)
{
    expect_told(&plug_bmc, "set boot-image backup");
    expect_told(&plug_bmc, "--json set boot-image backup");
}

} // namespace
} // namespace ivra::tests
