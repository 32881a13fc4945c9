#include "story.h"

#include "support/process.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include <sys/wait.h>
#include <unistd.h>

namespace ivra::platform_tests {

const std::string board_text = R"({
    "name": "board", "model": "xilinx_u200", "uid": "0000:01:00.0",
    "fpga": {"device": "xcu200-fsgd2104-2-e", "serial": "4002000001285c0f1a104285", "temperature": 45.5},
    "mac_addresses": {"first": "02:00:00:00:10:fe", "count": 3},
    "flash": {"size": "1 MiB", "sector": "4 KiB", "sections": [
        {"name": "PGM", "start": 0, "size": "0x10000"},
        {"name": "USR", "start": "0x10000", "size": "0x10000"},
        {"name": "PARAMS", "start": "0x20000", "size": "0x1000", "protected": true},
        {"name": "PARAMS", "start": "0x21000", "size": "0x1800"},
        {"start": "0x22800", "size": "0x800"},
        {"name": "OTP", "start": "0x23000", "size": "0x1000"}]},
    "cores": [
        {"hardware_id": 1, "address": "0x0", "size": "0x1000"},
        {"hardware_id": 16, "address": "0x1000", "size": "0x1000"},
        {"hardware_id": 32, "address": "0x2000", "size": "0x1000"},
        {"hardware_id": 48, "address": "0x3000", "size": "0x1000"},
        {"hardware_id": 475, "address": "0x10000", "size": "0x100", "registers": {"0x10": "0x89abcdef", "0x14": "0x01234567"}},
        {"hardware_id": 475, "address": "0x20000", "size": "0x100", "registers": {"0x10": "0x2"}}]})";

host::host()
{
    const char* base = std::getenv("TMPDIR");
    std::string path = std::string{base == nullptr ? "/tmp" : base} + "/ivra-platform-XXXXXX";
    folder = ::mkdtemp(path.data());
    rack = folder / "rack.json";
    state = folder / "state";
    ::setenv("IVRA_VIRTUAL_RACK", rack.c_str(), 1);
    ::setenv("IVRA_VIRTUAL_STATE", state.c_str(), 1);
    ::setenv("IVRA_VIRTUAL_TRACE", (folder / "trace").c_str(), 1);
    for (const char* other : {"IVRA_VIRTUAL_FAULTS", "IVRA_VIRTUAL_CLOCK", "IVRA_LOG_LEVEL"})
        ::unsetenv(other);
    plug({board_text});
}

host::~host()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

void host::plug(const std::vector<std::string>& accelerators)
{
    std::string text;
    for (const std::string& accelerator : accelerators)
        text += (text.empty() ? "" : ",\n") + accelerator;
    std::ofstream{rack} << "{\"accelerators\": [" << text << "]}";
}

void host::plan(const std::string& json)
{
    std::ofstream{folder / "faults.json"} << json;
    ::setenv("IVRA_VIRTUAL_FAULTS", (folder / "faults.json").c_str(), 1);
}

::pid_t host::start(tests::function_ref<void()> story)
{
    std::fflush(nullptr);
    const ::pid_t child = ::fork();
    if (child == 0) {
        story();
        std::exit(HasFailure() ? 1 : 0);
    }
    return child;
}

end_t host::end_of(::pid_t process)
{
    int ended = 0;
    EXPECT_EQ(::waitpid(process, &ended, 0), process);
    if (WIFSIGNALED(ended))
        return {-1, WTERMSIG(ended)};
    return {WEXITSTATUS(ended), 0};
}

void host::run(tests::function_ref<void()> story)
{
    const end_t end = end_of(start(story));
    EXPECT_EQ(end.status, 0) << "signal " << end.signal;
}

std::vector<std::string> host::trace() const
{
    static const std::regex form{R"(\d+\.\d{6} \d+ (.*))"};
    std::vector<std::string> lines;
    std::ifstream stream{folder / "trace"};
    for (std::string line; std::getline(stream, line);) {
        std::smatch parts;
        EXPECT_TRUE(std::regex_match(line, parts, form)) << line;
        lines.push_back(parts[1]);
    }
    return lines;
}

std::string host::read(const std::filesystem::path& file) const
{
    std::ifstream stream{file, std::ios::binary};
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

std::string host::shown() const
{
    const tests::run_t show = tests::run_program(IVRA_VIRTUAL_COMMAND, {"show", rack.string()});
    EXPECT_EQ(show.status, 0) << show.err;
    return show.out;
}

namespace {

std::vector<std::string>& logged()
{
    static std::vector<std::string> lines;
    return lines;
}

void keep(int level, const char*, int, const char* function, const char* format, va_list args)
{
    std::array<char, 4096> text{};
    std::vsnprintf(text.data(), text.size(), format, args);
    logged().push_back(std::to_string(level) + " " + function + ": " + text.data());
}

} // namespace

log_t::log_t()
{
    logged().clear();
    ivra_log_set_handler(&keep);
}

log_t::~log_t()
{
    ivra_log_set_handler(nullptr);
}

const std::vector<std::string>& log_t::lines() const
{
    return logged();
}

descriptors_t::descriptors_t(std::size_t capacity)
{
    handles.resize(capacity);
    const int count = ivra_hw_enumerate_all_accelerators(handles.data(), handles.size());
    handles.resize(static_cast<std::size_t>(std::max(count, 0)));
}

descriptors_t::~descriptors_t()
{
    for (const auto* handle : handles)
        ivra_hw_accelerator_put_descriptor(handle);
}

opened::opened(std::size_t index)
{
    descriptors_t all;
    descriptor = std::exchange(all.handles.at(index), nullptr);
    accelerator = ivra_hw_accelerator_get(descriptor);
    EXPECT_NE(accelerator, nullptr);
    EXPECT_EQ(ivra_hw_accelerator_enumerate_all_mmios(accelerator, &mmio_descriptor, 1), 1);
    mmio = ivra_hw_mmio_create(mmio_descriptor);
    EXPECT_NE(mmio, nullptr);
    tree = ivra_hw_enumerate_cores(mmio);
    EXPECT_NE(tree, nullptr);
    root = ivra_hw_core_tree_get_root(tree);
    EXPECT_NE(root, nullptr);
}

opened::~opened()
{
    ivra_hw_destroy_tree(tree);
    ivra_hw_mmio_destroy(mmio);
    ivra_hw_mmio_put_descriptor(mmio_descriptor);
    ivra_hw_accelerator_put(accelerator);
    ivra_hw_accelerator_put_descriptor(descriptor);
}

ivra_hw_core* opened::core(std::uint32_t hardware_id, std::size_t n) const
{
    std::array<ivra_hw_core*, 8> cores{};
    EXPECT_GT(ivra_hw_core_enumerate(root, hardware_id, cores.data(), cores.size()), static_cast<int>(n));
    return cores.at(n);
}

std::set<std::string> declared_functions()
{
    const std::regex comment{R"(/\*[^*]*\*+([^/*][^*]*\*+)*/)"};
    const std::regex declaration{R"((ivra_[a-z0-9_]+)\()"};
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator{IVRA_PLATFORM_HEADERS}) {
        std::ostringstream stream;
        stream << std::ifstream{entry.path()}.rdbuf();
        const std::string text = std::regex_replace(stream.str(), comment, "");
        for (std::sregex_iterator match{text.begin(), text.end(), declaration}, end; match != end; ++match)
            names.insert((*match)[1]);
    }
    return names;
}

std::uint64_t read_word(ivra_hw_core* core, std::uint64_t offset)
{
    const ivra_hw_register_description word{offset, 0, 32, "word"};
    std::uint64_t value = 0;
    EXPECT_EQ(ivra_hw_read(core, &word, &value), 0);
    return value;
}

void write_word(ivra_hw_core* core, std::uint64_t offset, std::uint64_t value)
{
    const ivra_hw_register_description word{offset, 0, 32, "word"};
    EXPECT_EQ(ivra_hw_write(core, &word, value), 0);
}

} // namespace ivra::platform_tests
