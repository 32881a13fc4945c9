#include "support/rack.h"

#include "support/outcome.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace ivra::tests {

namespace {

namespace fs = std::filesystem;

void write_file(const fs::path& file, const std::string& text)
{
    std::ofstream stream{file, std::ios::binary};
    stream << text;
    stream.close();
    if (!stream)
        throw std::runtime_error{"cannot write " + file.string()};
}

void checked(int result, const char* what)
{
    if (result < 0)
        throw std::system_error{errno, std::generic_category(), what};
}

/// An empty folder in place of `parent`, and in it `folder` with one file.
void cover(const fs::path& parent, const char* folder, const char* file, const std::optional<std::string>& content)
{
    checked(::mount("none", parent.c_str(), "tmpfs", 0, nullptr), "mount");
    if (content) {
        fs::create_directory(parent / folder);
        write_file(parent / folder / file, *content);
    }
}

members_t plain_board(std::size_t position)
{
    const std::string n = std::to_string(position);
    return {
        {"name", "\"card-" + n + "\""},
        {"uid", "\"0000:0" + n + ":00.0\""},
        {"fpga",
         R"({"device": "xcvu7p-flva2104-2-e", "serial": "4002000001285c0f1a10428)" + n + R"(", "temperature": 45.5})"},
        {"mac_addresses", R"({"first": "02:00:00:00:0)" + n + R"(:00", "count": 4})"},
        {"flash", R"({"size": "128 MiB", "sector": "64 KiB", "sections": [
            {"name": "PGM", "start": "0x0", "size": "0x1002000"},
            {"name": "USR", "start": "0x1002000", "size": "0x5000000"},
            {"name": "PARAMS", "start": "0x7fc0000", "size": "0x10000", "protected": true},
            {"name": "PARAMS", "start": "0x7fd0000", "size": "0x10000"},
            {"name": "OTP", "start": "0x7ff0000", "size": "0x1000"}]})"},
    };
}

} // namespace

void enter_host(const host_t& host)
{
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    if (user == 0) {
        checked(::unshare(CLONE_NEWNS), "unshare");
    } else {
        checked(::unshare(CLONE_NEWUSER | CLONE_NEWNS), "unshare");
        write_file("/proc/self/setgroups", "deny");
        write_file("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        write_file("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    checked(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount");
    cover("/sys/devices/platform", "sid.0", "serial", host.serial);
    cover("/sys/class/net", "ma1", "address", host.address);
}

rack_t::rack_t() : program_{IVRA_BSP_BOARD}
{
    std::string name = (fs::temp_directory_path() / "ivra-rack-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr)
        throw std::system_error{errno, std::generic_category(), "mkdtemp"};
    folder_ = name;
}

rack_t::~rack_t()
{
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

rack_t& rack_t::plug(const std::string& model, const members_t& members)
{
    members_t all = plain_board(accelerators_.size());
    for (const auto& [name, text] : members)
        all[name] = text;
    std::string accelerator = "{\"model\": \"" + model + "\"";
    for (const auto& [name, text] : all)
        accelerator += ", \"" + name + "\": " + text;
    accelerators_.push_back(accelerator + "}");
    if (model.starts_with("m48") && !host_)
        host_ = host_t{};
    return *this;
}

rack_t& rack_t::file(const std::string& text)
{
    text_ = text;
    return *this;
}

rack_t& rack_t::faults(const std::string& rules)
{
    write_file(folder_ / "faults.json", "[" + rules + "]");
    return environment("IVRA_VIRTUAL_FAULTS=" + (folder_ / "faults.json").string());
}

rack_t& rack_t::host(const host_t& files)
{
    host_ = files;
    return *this;
}

rack_t& rack_t::environment(const std::string& entry)
{
    environment_.push_back(entry);
    return *this;
}

rack_t& rack_t::forbid(const std::vector<int>& calls, int error)
{
    forbidden_ = calls;
    forbidden_error_ = error;
    return *this;
}

rack_t& rack_t::program(const std::string& file)
{
    program_ = file;
    return *this;
}

std::vector<std::string> rack_t::prepare()
{
    std::string text = "{\"accelerators\": [";
    for (const std::string& accelerator : accelerators_)
        text += (text.back() == '[' ? "\n" : ",\n") + accelerator;
    write_file(folder_ / "rack.json", text_.value_or(text + "]}"));
    fs::remove(folder_ / "trace");
    return variables();
}

std::vector<std::string> rack_t::variables() const
{
    std::vector<std::string> environment{
        "IVRA_VIRTUAL_RACK=" + (folder_ / "rack.json").string(),
        "IVRA_VIRTUAL_STATE=" + (folder_ / "state").string(),
        "IVRA_VIRTUAL_TRACE=" + (folder_ / "trace").string(),
        "IVRA_VIRTUAL_FAULTS",
        "IVRA_VIRTUAL_CLOCK=" + (folder_ / "clock").string(),
        "IVRA_LOG_LEVEL",
        "IVRA_BSP_HELP",
        "IVRA_BSP_COLOR",
        "IVRA_BSP_JSON",
        "IVRA_BSP_ACCELERATOR",
        "COLORTERM",
        "TERM=xterm",
        "LC_ALL=C.UTF-8",
    };
    environment.insert(environment.end(), environment_.begin(), environment_.end());
    return environment;
}

run_t rack_t::run(const std::string& words, streams_t streams)
{
    return run(split(words), streams);
}

run_t rack_t::run(const std::vector<std::string>& words, streams_t streams)
{
    run_t run = start(words, prepare(), streams).end();
    expect_everything_released(run);
    return run;
}

running_t rack_t::start(const std::string& words, streams_t streams)
{
    return start(split(words), prepare(), streams);
}

running_t rack_t::start_neighbour(const std::string& words, streams_t streams) const
{
    std::vector<std::string> environment = variables();
    environment.insert(environment.end(), {"IVRA_VIRTUAL_TRACE", "IVRA_VIRTUAL_FAULTS"});
    return start(split(words), environment, streams);
}

running_t rack_t::start(const std::vector<std::string>& words, const std::vector<std::string>& environment,
                        streams_t streams) const
{
    return running_t{[&] {
                         if (host_)
                             enter_host(*host_);
                         if (!forbidden_.empty())
                             tests::forbid(forbidden_, forbidden_error_);
                         exec_program(program_, words, environment);
                     },
                     streams, fs::path{program_}.filename()};
}

run_t rack_t::in_child(function_ref<void()> body, streams_t streams)
{
    const std::vector<std::string> environment = prepare();
    run_t run = run_in_child(
        [&] {
            if (host_)
                enter_host(*host_);
            set_environment(environment);
            body();
        },
        streams);
    expect_everything_released(run);
    return run;
}

std::string rack_t::trace() const
{
    std::ostringstream text;
    text << std::ifstream{folder_ / "trace"}.rdbuf();
    return text.str();
}

void rack_t::expect_everything_released(const run_t& run) const
{
    const std::string text = trace();
    if (run.status < 128 && !text.empty()) {
        EXPECT_TRUE(text.ends_with(" 0 handles not released\n")) << text;
    }
}

std::string printed(rack_t& rack, function_ref<void()> body)
{
    const run_t run = rack.in_child([&] {
        if (const std::string end = outcome(body); end != "ok")
            std::cout << end;
    });
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    return run.out;
}

std::vector<std::string> traced(const rack_t& rack, const std::string& piece)
{
    std::vector<std::string> found;
    std::istringstream trace{rack.trace()};
    for (std::string line; std::getline(trace, line);)
        if (const std::size_t at = line.find(piece); at != std::string::npos)
            found.push_back(line.substr(at));
    return found;
}

std::size_t calls(const rack_t& rack, const std::string& function)
{
    return traced(rack, " " + function + "(").size();
}

std::vector<std::string> split(const std::string& line)
{
    std::vector<std::string> words;
    std::istringstream stream{line};
    for (std::string word; std::getline(stream, word, ' ');)
        words.push_back(word);
    return words;
}

} // namespace ivra::tests
