#include "cases.h"

#include "support/rack.h"

#include "devices/bmc/bmc.h"
#include "devices/clock_generator/clock_generator.h"
#include "devices/i2c/i2c.h"
#include "devices/module/module.h"
#include "rack/calls.h"
#include "rack/rack.h"
#include "state/parameters.h"
#include "state/state.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

int board_main(int argc, char** argv);
int readings_main(int argc, char** argv);

namespace ivra::tests {

namespace {

namespace fs = std::filesystem;
namespace vp = virtual_platform;

// ---- boards and command lines ----

const std::string ready_xmc = R"("xmc": {"ready_after": ["0 s", "0.1 s"], "answer_after": "5 ms"})";
const std::string small_bmc = R"("bmc": {"latency": "0 ms", "boot_image": "primary", "sensors": {"only": true, "list": [
    {"name": "12V0", "unit": "V", "value": 12, "m": 1, "limits": {"upper_critical": 13}},
    {"name": "FPGA temp", "unit": "degrees C", "value": 40, "m": 1}]}})";
const std::string i2c = R"("i2c": {"mac_eeprom": "MAC=00:11:22:33:44:55", "cages": ["qsfp28-sr4", "qsfpdd-dr4"]})";

struct model_row_t
{
    const char* name;
    std::string members;
    bool takes_every_error; ///< one of each family
};
// clang-format off
const model_row_t models[] = {
    {"xilinx_u200",      ready_xmc + ", " + i2c,   true},
    {"xilinx_u250",      ready_xmc + ", " + i2c,   false},
    {"xilinx_u50",       ready_xmc,                false},
    {"xilinx_u55c",      ready_xmc,                true},
    {"bittware_xupp3r",  small_bmc + ", " + i2c,   true},
    {"bittware_xupvv8",  small_bmc + ", " + i2c,   false},
    {"ivra_fpb2",        small_bmc + ", " + i2c,   true},
    {"m48l_xcvu7p",      "",                       true},
    {"m48e_emu_xcvu9p",  "",                       false},
    {"m48lb_xcvu9p",     "",                       false},
};
// clang-format on

const model_row_t& row_of(const story_t& story)
{
    const auto* const row = std::ranges::find(models, story.model, &model_row_t::name);
    if (row == std::end(models))
        throw std::runtime_error{"No such model: " + story.model};
    return *row;
}

const char* const board_words[] = {
    "list",
    "show",
    "show info",
    "show boot-image",
    "show flash",
    "show sensors",
    "show transceivers",
    "show all",
    "set boot-image primary",
    "set boot-image backup",
    "set transceiver-speed 1G",
    "set transceiver-speed 10G",
    "set transceiver-speed 1G 1G",
    "set transceiver-speed 10G 10G",
    "set qsfp-power-mode high",
    "set qsfp-power-mode low",
    "setup",
    "--help",
    "list --help",
    "show --help",
    "set --help",
    "setup --help",
};
const char* const readings_words[] = {"--json --jobs 1", "--lines --jobs 1", "--text --jobs 1", "--check --jobs 1",
                                      "--help"};

// ---- a run ----

void write_file(const fs::path& file, const std::string& text)
{
    std::ofstream stream{file, std::ios::binary};
    stream << text;
    stream.close();
    if (!stream)
        throw std::runtime_error{"cannot write " + file.string()};
}

std::string read_file(const fs::path& file)
{
    std::ostringstream text;
    text << std::ifstream{file, std::ios::binary}.rdbuf();
    return text.str();
}

/// Runs a program's main() in this process.
[[noreturn]] void run_main(const std::string& line)
{
    std::vector<std::string> words = split(line);
    const auto main_function = words.at(0) == "readings" ? &readings_main : &board_main;
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    std::exit(main_function(static_cast<int>(words.size()), pointers.data()));
}

/// Waits for what a program has left behind: this process is their heir. False when they do not end.
bool end_orphans()
{
    for (int i = 0; i < 50000; ++i) {
        const ::pid_t process = ::waitpid(-1, nullptr, WNOHANG);
        if (process < 0)
            return true;
        if (process == 0)
            ::usleep(200);
    }
    return false;
}

std::vector<std::pair<std::uint64_t, std::uint8_t>> programmed_bytes(const fs::path& state)
{
    std::vector<std::pair<std::uint64_t, std::uint8_t>> bytes;
    std::error_code none;
    for (const auto& entry : fs::recursive_directory_iterator{state, none}) {
        if (entry.path().filename() != "flash")
            continue;
        const int file = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
        std::array<std::uint8_t, 4096> page{};
        for (::off_t at = 0; (at = ::lseek(file, at, SEEK_DATA)) >= 0;) {
            const ::ssize_t count = ::pread(file, page.data(), page.size(), at);
            for (::ssize_t i = 0; i < count; ++i)
                if (const std::uint8_t inverted = page.at(static_cast<std::size_t>(i)); inverted != 0)
                    bytes.emplace_back(at + i, static_cast<std::uint8_t>(~inverted));
            at += std::max<::ssize_t>(count, 1);
        }
        ::close(file);
    }
    return bytes;
}

/// Says what the board remembers of what can be set.
void tell_board()
{
    const vp::rack_t rack = vp::load_rack(vp::rack_in_use());
    const vp::accelerator_t& board = rack.accelerators.front();
    auto state = vp::board_state::open_existing(rack, board);
    if (!state) {
        std::cout << "not used yet\n";
        return;
    }
    if (board.bmc) {
        vp::bmc_memory_t memory = state->bmc().read();
        std::cout << "boot image " << unsigned{vp::bmc{*board.bmc, memory}.boot_image()} << '\n';
    }
    for (std::size_t cage = 0; cage < board.i2c.cages.size(); ++cage)
        if (board.i2c.cages[cage].module)
            std::cout << "cage " << cage << " in power mode "
                      << static_cast<int>(vp::power_mode_of(vp::remembered(board.i2c, cage, state->i2c()))) << '\n';
    const auto has_clock = [](const vp::i2c_bus_t& bus) {
        return std::ranges::find(bus.devices, vp::i2c_kind_t::clock_generator, &vp::i2c_device_t::kind) !=
               bus.devices.end();
    };
    if (std::ranges::any_of(board.i2c.buses, has_clock)) {
        const vp::clock_status_t clock = vp::clock_generator{state->i2c(), vp::places_of(board.i2c).clock}.status();
        std::cout << clock.text;
        for (const std::string& output : clock.outputs)
            std::cout << ", " << output;
        std::cout << '\n';
    }
    for (const auto& address : vp::mac_addresses(board, *state))
        for (const std::uint8_t byte : address)
            std::cout << unsigned{byte} << ' ';
    std::cout << '\n';
}

// ---- faults ----

struct error_row_t
{
    std::string_view call, error;
};
/// What the headers say that these calls fail with; any other is given EIO.
// clang-format off
constexpr error_row_t errors[] = {
    {"ivra_hw_prop_get_name",        "ENOENT"},
    {"ivra_hw_prop_get_uid",         "ERANGE"},
    {"ivra_hw_accelerator_get",      "EACCES"},
    {"ivra_hw_shared_mutex_lock",    "EDEADLK"},
    {"ivra_hw_shared_mutex_trylock", "EBUSY"},
    {"ivra_hw_top_get_board_name",   "ERANGE"},
    {"ivra_hw_top_get_device_id",    "ERANGE"},
    {"ivra_flash_write_section",     "EROFS"},
    {"ivra_i2c_create",              "ENODEV"},
    {"ivra_i2c_get_bus",             "ENODEV"},
    {"ivra_uart_create",             "ENODEV"},
    {"ivra_uart_write_all",          "ETIMEDOUT"},
    {"ivra_parse_mac_address",       "EINVAL"},
    {"ivra_mac_address_from_int",    "ERANGE"},
};
// clang-format on

/// All that the headers name, and none.
constexpr std::string_view every_error[] = {"0",      "EACCES", "EBUSY", "EDEADLK", "EFBIG", "EINVAL",   "EIO",
                                            "ENODEV", "ENOENT", "ENXIO", "ERANGE",  "EROFS", "ETIMEDOUT"};

std::string_view error_of(std::string_view call)
{
    const auto* const row = std::ranges::find(errors, call, &error_row_t::call);
    return row == std::end(errors) ? "EIO" : row->error;
}

} // namespace

std::size_t record_t::count(std::string_view beginning, std::string_view piece) const
{
    return static_cast<std::size_t>(std::ranges::count_if(trace, [&](const std::string& line) {
        return line.starts_with(beginning) && line.find(piece) != std::string::npos;
    }));
}

std::vector<story_t> make_stories()
{
    std::vector<story_t> stories;
    for (const model_row_t& model : models) {
        for (const char* words : board_words)
            for (const char* format : {"", "--json "})
                stories.push_back({model.name, std::string{"board "} + format + words});
        for (const char* words : readings_words)
            stories.push_back({model.name, std::string{"readings "} + words});
    }
    return stories;
}

stage::stage()
{
    std::string name = (fs::temp_directory_path() / "ivra-sweep-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr)
        throw std::system_error{errno, std::generic_category(), "mkdtemp"};
    folder_ = name;
}

stage::~stage()
{
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

std::vector<std::string> stage::environment(const std::string& rule) const
{
    return {"IVRA_VIRTUAL_RACK=" + (folder_ / "rack.json").string(),
            "IVRA_VIRTUAL_STATE=" + (folder_ / "state").string(),
            "IVRA_VIRTUAL_TRACE=" + (folder_ / "trace").string(),
            "IVRA_VIRTUAL_CLOCK=" + (folder_ / "clock").string(),
            "IVRA_VIRTUAL_FAULTS" + (rule.empty() ? "" : "=" + (folder_ / "faults.json").string()),
            "IVRA_LOG_LEVEL",
            "IVRA_BSP_HELP",
            "IVRA_BSP_COLOR",
            "IVRA_BSP_JSON",
            "IVRA_BSP_ACCELERATOR",
            "LC_ALL=C.UTF-8"};
}

record_t stage::play(const story_t& story, const std::string& rule)
{
    for (const char* file : {"state", "trace", "clock"})
        fs::remove_all(folder_ / file);
    const model_row_t& model = row_of(story);
    write_file(folder_ / "rack.json", R"({"accelerators": [{"name": "card-0", "model": ")" + story.model + '"' +
                                          (model.members.empty() ? "" : ", ") + model.members + "}]}");
    if (!rule.empty())
        write_file(folder_ / "faults.json", "[" + rule + "]");

    record_t record;
    constexpr unsigned patience = 60; // seconds of this process's own time
    record.run = run_in_child([&] {
        ::alarm(patience);
        set_environment(environment(rule));
        run_main(story.words);
    });
    if (!end_orphans())
        throw std::runtime_error{"a process of " + story.words + " does not end with it"};

    std::map<std::string, std::size_t> processes;
    std::istringstream lines{read_file(folder_ / "trace")};
    for (std::string time, process, line; lines >> time >> process && lines.get() && std::getline(lines, line);) {
        record.trace.push_back(line);
        record.process.push_back(processes.emplace(process, processes.size()).first->second);
    }
    if (const std::string clock = read_file(folder_ / "clock"); clock.size() >= sizeof(std::int64_t)) {
        std::int64_t ticks = 0;
        std::copy_n(clock.data(), sizeof ticks, reinterpret_cast<char*>(&ticks));
        record.time = std::chrono::nanoseconds{ticks};
    }
    record.flash = programmed_bytes(folder_ / "state");
    if (story.is_change() && record.run.status == 0)
        record.board = run_in_child([&] {
                           set_environment(environment(""));
                           tell_board();
                       }).out;
    return record;
}

std::vector<std::string> make_rules(const story_t& story, const record_t& whole)
{
    std::vector<std::string> rules;
    std::map<std::pair<std::size_t, std::string>, std::size_t> made;
    std::map<std::string, std::size_t> most; // by one process
    for (std::size_t i = 0; i < whole.trace.size(); ++i) {
        const std::string& line = whole.trace[i];
        const std::string name = line.substr(0, line.find('('));
        const auto* const call = std::ranges::find(vp::calls, name, &vp::call_row_t::name);
        if (call == std::end(vp::calls) || (call->traits & vp::fails) == 0)
            continue;
        const std::size_t nth = ++made[{whole.process[i], name}];
        constexpr std::size_t all = 20, one_of = 12; // devices are asked in the same way many times
        if (nth <= most[name] || (nth > all && nth % one_of != 0))
            continue;
        most[name] = nth;
        const auto add = [&](const std::string& members) {
            rules.push_back(R"({"call": ")" + name + R"(", "nth": )" + std::to_string(nth) + ", " + members + "}");
        };
        const auto error_member = [](std::string_view error) { return R"("errno": ")" + std::string{error} + '"'; };
        const std::string error = error_member(error_of(name));
        if (row_of(story).takes_every_error)
            for (const std::string_view each : every_error)
                add(error_member(each));
        else
            add(error);
        if ((call->traits & (vp::lists | vp::transfers)) != 0) {
            // What moves bytes and returns no count has to fail to say that it moved fewer.
            const bool says_so = (call->traits & vp::counts) != 0;
            add(R"("short": 1)" + (says_so ? "" : ", " + error));
            if (says_so)
                add(R"("short": 0)");
        }
        add(R"("delay": "1 s")");
        add(R"("kill": "after")");
    }
    return rules;
}

} // namespace ivra::tests
