// Stories of a running exporter: boards that it reads, and readers that behave oddly.

#include "exporter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace ivra::tests {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

const host_t switch_host{.serial = "SSJ17200123\n", .address = "00:1c:73:aa:bb:cc\n"};

/// A plain switch, which has no controller and no cages.
const std::string switch_samples =
    R"(ivra_board_info{uid="0000:00:00.0",index="0",name="card-0",model="m48l_xcvu7p",serial="SSJ17200123",)"
    R"(mac="02:00:00:00:00:00",fpga="xcvu7p-flva2104-2-e",fpga_serial="4002000001285c0f1a104280"} 1
ivra_board_up{uid="0000:00:00.0"} 1
ivra_board_health{uid="0000:00:00.0",state="ok"} 1
ivra_board_health{uid="0000:00:00.0",state="unknown"} 0
ivra_board_health{uid="0000:00:00.0",state="warning"} 0
ivra_board_health{uid="0000:00:00.0",state="critical"} 0
ivra_board_readings{uid="0000:00:00.0",state="ok"} 1
ivra_board_readings{uid="0000:00:00.0",state="unavailable"} 0
ivra_board_readings{uid="0000:00:00.0",state="unsupported"} 0
ivra_board_readings{uid="0000:00:00.0",state="failed"} 0
ivra_fpga_celsius{uid="0000:00:00.0"} 45.5
)";

/// A short deadline: that of a scraper who gives up half a second later.
const std::string impatient = "X-Prometheus-Scrape-Timeout-Seconds: 0.7\r\n";

const std::string head =
    R"("format":1,"program":"ivra-bsp-readings","version":"1.2.3","time":"T","host":"h","platform":"simulated")";

/// A script that says that there are two boards, of which the first one is read. It says so at once: nobody may listen
/// any more when it says a second thing.
const std::string two_boards = "echo '{" + head + R"(,"announced":[{"index":0,"uid":"a"},{"index":1,"uid":"b"}]}
{"index":0,"uid":"a","state":"ok","health":"ok","findings":[]}')" +
                               "\n";

std::string read_file(const fs::path& file)
{
    std::ostringstream text;
    text << std::ifstream{file, std::ios::binary}.rdbuf();
    return text.str();
}

/// The document follows the schema of ivra-bsp-readings, by another program's judgement.
void expect_valid(const std::string& document)
{
    const char* const script = R"python(
import json, sys
from jsonschema import Draft202012Validator
for error in Draft202012Validator(json.load(open(sys.argv[1]))).iter_errors(json.loads(sys.argv[2])):
    print("/".join(map(str, error.absolute_path)), error.message[:200])
)python";
    EXPECT_EQ(run_program("/usr/bin/python3", {"-c", script, IVRA_SCHEMA, document}), says(""));
}

TEST(exporter, serves_the_boards_of_a_host)
{
    exporter_t exporter;
    exporter.plug("m48l_xcvu7p").host(switch_host);
    exporter.serve();
    const reply_t reply = exporter.get("/metrics");
    EXPECT_EQ(reply.status, "HTTP/1.1 200 OK");
    EXPECT_THAT(reply.headers, HasSubstr("Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
    EXPECT_THAT(reply.headers, HasSubstr("Content-Length: " + std::to_string(reply.body.size()) + "\r\n"));
    EXPECT_EQ(samples(reply.body), switch_samples);
    EXPECT_THAT(reply.body,
                HasSubstr("\nivra_exporter_info{version=\"" IVRA_BSP_VERSION "\",platform=\"simulated\"} 1\n"));
    EXPECT_THAT(reply.body, HasSubstr("\nivra_exporter_collect_success 1\n"));
    EXPECT_THAT(reply.body, HasSubstr("\nivra_exporter_collections_total 1\n"));

    const reply_t document = exporter.get("/readings.json");
    EXPECT_THAT(document.headers, HasSubstr("Content-Type: application/json\r\n"));
    EXPECT_THAT(document.body, HasSubstr(R"("health":"ok","findings":[],"board_count":1,"boards":[)"
                                         "\n"
                                         R"({"index":0,"name":"card-0","uid":"0000:00:00.0","state":"ok","model")"));
    expect_valid(document.body);
    EXPECT_THAT(exporter.get("/").body, HasSubstr("<td class=\"health ok\">ok</td><td>0</td><td>card-0</td>"));
    EXPECT_EQ(exporter.get("/-/healthy").body, "OK\n");
    EXPECT_EQ(exporter.stop(SIGTERM),
              (run_t{"", "ivra-bsp exporter: http://127.0.0.1:" + std::to_string(exporter.port()) + "/\n", 0}));
}

TEST(exporter, writes_what_others_take_for_every_rack)
{
    std::set<fs::path> racks;
    for (const auto& entry : fs::directory_iterator{IVRA_RACKS})
        if (entry.is_regular_file() && !entry.path().string().ends_with(".schema.json"))
            racks.insert(entry.path());
    EXPECT_THAT(racks, Contains(fs::path{IVRA_RACKS} / "showcase.json"));
    const rack_t results;                                                       // its folder
    const std::string patient = "X-Prometheus-Scrape-Timeout-Seconds: 100\r\n"; // no board is late, however slow all is
    std::vector<std::string> words{IVRA_REFEREES "/metrics_of_readings.py"};
    for (const fs::path& rack : racks) {
        SCOPED_TRACE(rack.filename());
        exporter_t exporter;
        exporter.file(read_file(rack)).host(switch_host);
        exporter.serve("--max-age 3600"); // one collection
        const std::string metrics = exporter.get("/metrics", patient).body;
        EXPECT_THAT(metrics, HasSubstr("\nivra_exporter_collect_success 1\n"));
        EXPECT_THAT(metrics, HasSubstr("\nivra_exporter_dropped_series 0\n"));
        EXPECT_EQ(metrics.find("\nivra_board_info{") != std::string::npos, rack.filename() != "none.json");
        const fs::path folder = results.folder() / rack.filename();
        fs::create_directory(folder);
        std::ofstream{folder / "metrics"} << metrics;
        std::ofstream{folder / "readings"} << exporter.get("/readings.json", patient).body;
        EXPECT_EQ(run_program("/bin/sh", {"-c", "exec \"$0\" check metrics <\"$1\"", IVRA_PROMTOOL,
                                          (folder / "metrics").string()}),
                  says(""));
        words.push_back(folder.string());
    }
    EXPECT_EQ(run_program("/usr/bin/python3", words), says(""));
}

TEST(exporter, collects_again_for_a_scrape_when_the_last_collection_is_old)
{
    exporter_t exporter;
    exporter.plug("m48l_xcvu7p").host(switch_host);
    exporter.serve("--max-age 0");
    const auto count = [&exporter] {
        const std::string body = exporter.get("/metrics").body, name = "\nivra_exporter_collections_total ";
        return std::stoi(body.substr(body.find(name) + name.size()));
    };
    const int first = count(); // which may be the collection of the start
    EXPECT_EQ(count(), first + 1);
    EXPECT_EQ(count(), first + 2);
    EXPECT_EQ(samples(exporter.get("/metrics").body), switch_samples);
}

TEST(exporter, answers_20_scrapers_with_one_collection)
{
    exporter_t exporter;
    exporter.reader(two_boards + "read -r line <\"${0%/*}/gate\"\n" +
                    R"(echo '{"index":1,"uid":"b","state":"ok","health":"ok","findings":[]}')" + "\n" + "echo '{" +
                    head + R"(,"health":"ok","board_count":2}')" + "\n");
    const fs::path gate = exporter.folder() / "bin/gate";
    ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
    exporter.serve();
    std::vector<std::unique_ptr<connection_t>> scrapers;
    for (int i = 0; i < 20; ++i) {
        scrapers.push_back(std::make_unique<connection_t>(exporter.port()));
        scrapers.back()->send("GET /metrics HTTP/1.1\r\nHost: h\r\n\r\n");
    }
    EXPECT_EQ(exporter.get("/-/healthy").body, "OK\n") << "others are served meanwhile";
    scrapers.pop_back(); // one has gone away
    std::ofstream{gate} << "now\n";
    for (const auto& scraper : scrapers) {
        const std::string body = to_reply(scraper->receive()).body;
        EXPECT_THAT(body, HasSubstr("ivra_board_up{uid=\"b\"} 1\n"));
        EXPECT_THAT(body, HasSubstr("\nivra_exporter_collections_total 1\n"));
    }
}

TEST(exporter, answers_in_time_without_a_board_that_never_answers)
{
    exporter_t exporter;
    exporter.reader(R"(case "$*" in *--skip=b*) echo '{)" + head + R"(,"announced":[{"index":0,"uid":"a"}]}')" + "\n" +
                    R"(echo '{"index":0,"uid":"a","state":"ok","health":"ok","findings":[]}'; echo '{)" + head +
                    R"(,"health":"ok","board_count":1}'; exit;; esac)" + "\n" + two_boards +
                    "read -r line <\"${0%/*}/gate\"\n");
    ASSERT_EQ(::mkfifo((exporter.folder() / "bin/gate").c_str(), 0600), 0);
    exporter.serve("--max-age 0");
    std::string body = exporter.get("/metrics", impatient).body;
    EXPECT_THAT(body, HasSubstr("ivra_board_up{uid=\"a\"} 1\nivra_board_up{uid=\"b\"} 0\n"));
    EXPECT_THAT(body, HasSubstr("ivra_board_down{uid=\"b\",reason=\"late\"} 1\n"));
    body = exporter.get("/metrics", impatient).body;
    EXPECT_THAT(body, HasSubstr("ivra_board_down{uid=\"b\",reason=\"held\"} 1\n"));
    EXPECT_THAT(body, HasSubstr("\nivra_exporter_held_readers 1\n"));
    EXPECT_THAT(body, HasSubstr("\nivra_exporter_set_aside_total 1\n")) << "it was not asked";
    const std::string document = exporter.get("/readings.json", impatient).body;
    EXPECT_THAT(document,
                HasSubstr(R"({"index":1,"uid":"b","state":"failed","error":"an earlier collection still waits )"
                          R"(for it, or did so a moment ago","health":"unknown","findings":[]}]})"));
    expect_valid(document);
    EXPECT_EQ(exporter.stop(SIGTERM).status, 0);
    std::ofstream{exporter.folder() / "bin/gate"} << "now\n"; // the held reader was left alone
}

TEST(exporter, tells_boards_that_come_go_and_change_their_index_between_two_scrapes)
{
    exporter_t exporter;
    exporter.reader("cat \"${0%/*}/boards\"\n");
    const auto boards = [&](const std::vector<std::string>& uids) {
        std::string announced, documents;
        for (std::size_t at = 0; at < uids.size(); ++at) {
            const std::string identity = "{\"index\":" + std::to_string(at) + ",\"uid\":\"" + uids[at] + "\"";
            announced += (announced.empty() ? "" : ",") + identity + "}";
            documents += identity + R"(,"state":"ok","health":"ok","findings":[]})" + "\n";
        }
        std::ofstream{exporter.folder() / "bin/boards"}
            << "{" + head + ",\"announced\":[" + announced + "]}\n" + documents + "{" + head + ",\"health\":\"ok\"}\n";
    };
    boards({"a", "b"});
    exporter.serve("--max-age 0");
    EXPECT_THAT(exporter.get("/metrics").body, HasSubstr("{uid=\"a\"} 1\nivra_board_up{uid=\"b\"} 1\n#"));
    boards({"c", "b", "a"});
    const std::string body = exporter.get("/metrics").body;
    EXPECT_THAT(body, HasSubstr("{uid=\"c\"} 1\nivra_board_up{uid=\"b\"} 1\nivra_board_up{uid=\"a\"} 1\n#"));
    EXPECT_THAT(body, HasSubstr("ivra_board_info{uid=\"a\",index=\"2\","));
    boards({"b"});
    EXPECT_THAT(exporter.get("/metrics").body, HasSubstr("gauge\nivra_board_up{uid=\"b\"} 1\n#"));
    boards({});
    EXPECT_EQ(samples(exporter.get("/metrics").body), "");
}

TEST(exporter, asks_for_all_boards_as_it_was_told_and_without_a_deadline)
{
    exporter_t exporter;
    exporter.reader("echo \"$*\" >\"${0%/*}/words\"\n").serve("--limits L --jobs 3 --parts sensors");
    EXPECT_EQ(exporter.get("/-/healthy").body, "OK\n");
    EXPECT_EQ(read_file(exporter.folder() / "bin/words"),
              "--lines --announce --timeout=0 --jobs=3 --parts=sensors --limits=L\n");
}

TEST(exporter, ends_at_a_signal_whatever_it_does_and_leaves_its_children_alone)
{
    for (const bool is_listed : {false, true}) {
        exporter_t exporter;
        exporter.reader((is_listed ? two_boards : "") +
                        "read -r line <\"${0%/*}/gate\"; echo $line >\"${0%/*}/end\"\n");
        for (const char* name : {"gate", "end"})
            ASSERT_EQ(::mkfifo((exporter.folder() / "bin" / name).c_str(), 0600), 0);
        exporter.serve();
        connection_t scraper{exporter.port()};
        scraper.send("GET /metrics HTTP/1.1\r\nHost: h\r\n\r\n");
        if (is_listed) {
            EXPECT_EQ(exporter.get("/-/healthy").body, "OK\n") << "it has taken the scrape, too";
        }
        EXPECT_EQ(exporter.stop(SIGTERM).status, 0);
        EXPECT_EQ(scraper.receive(), "");
        std::ofstream{exporter.folder() / "bin/gate"} << "lives\n";
        EXPECT_EQ(read_file(exporter.folder() / "bin/end"), "lives\n");
    }
}

TEST(exporter, tells_the_service_manager_when_it_is_ready_and_when_it_stops)
{
    for (const bool is_abstract : {false, true}) { // a name of no file
        exporter_t exporter;
        std::string place = (exporter.folder() / "notify").string();
        ::sockaddr_un address{};
        address.sun_family = AF_UNIX;
        ASSERT_LT(place.size(), sizeof address.sun_path);
        if (is_abstract)
            place.front() = '@';
        std::memcpy(address.sun_path, place.data(), place.size());
        if (is_abstract)
            address.sun_path[0] = '\0';
        const int manager = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const ::timeval patience{.tv_sec = 30, .tv_usec = 0};
        ASSERT_EQ(::setsockopt(manager, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
        const auto size = static_cast<::socklen_t>(offsetof(::sockaddr_un, sun_path) + place.size());
        ASSERT_EQ(::bind(manager, reinterpret_cast<const ::sockaddr*>(&address), size), 0);
        const auto told = [manager] {
            std::array<char, 100> message{};
            const ::ssize_t count = ::recv(manager, message.data(), message.size(), 0);
            return std::string{message.data(), count < 0 ? 0 : static_cast<std::size_t>(count)};
        };
        exporter.environment("NOTIFY_SOCKET=" + place);
        exporter.serve();
        EXPECT_EQ(told(), "READY=1");
        EXPECT_EQ(exporter.stop(SIGTERM).status, 0);
        EXPECT_EQ(told(), "STOPPING=1");
        ::close(manager);
    }
}

TEST(exporter, goes_on_when_what_reads_the_boards_dies)
{
    exporter_t exporter;
    exporter.reader(two_boards + "kill -9 $$\n").serve();
    const std::string body = exporter.get("/metrics").body;
    EXPECT_THAT(body, HasSubstr("ivra_board_up{uid=\"a\"} 1\nivra_board_up{uid=\"b\"} 0\n"));
    EXPECT_THAT(body, HasSubstr("ivra_board_down{uid=\"b\",reason=\"failed\"} 1\n"));
    EXPECT_THAT(exporter.get("/readings.json").body,
                HasSubstr("\"error\":\"what reads the boards was ended by signal 9 (Killed)\""));
}

TEST(exporter, starts_without_boards_and_where_they_cannot_be_told)
{
    for (const auto& [script, error] :
         {std::pair<std::string, std::string>{"echo '{" + head + R"(,"announced":[]}')", ""},
          {"echo '{\"format\":2}'", "what reads the boards does not speak format 1 of their documents"},
          {"exit 0", "what reads the boards ended with status 0"},
          {"kill -11 $$", "what reads the boards was ended by signal 11 (Segmentation fault)"}}) {
        exporter_t exporter;
        exporter.reader(script + "\n").serve();
        const std::string body = exporter.get("/metrics").body;
        EXPECT_EQ(samples(body), "");
        EXPECT_THAT(body, HasSubstr(error.empty() ? "\nivra_exporter_collect_success 1\n"
                                                  : "\nivra_exporter_collect_success 0\n"));
        EXPECT_THAT(exporter.get("/").body, HasSubstr(error.empty() ? "<p>No accelerator found</p>" : error));
        EXPECT_EQ(exporter.stop(SIGINT).status, 0);
    }
}

TEST(exporter, starts_where_nothing_can_be_started_to_read_the_boards)
{
    exporter_t exporter;
    const std::string program = (exporter.folder() / "bin/ivra-bsp-readings").string();
    exporter.reader("");
    std::ofstream{program} << "no program";
    exporter.serve();
    EXPECT_THAT(exporter.get("/metrics").body, HasSubstr("\nivra_exporter_collect_success 0\n"));
    EXPECT_THAT(exporter.get("/").body,
                HasSubstr("<p class=\"failed\">Cannot start " + program + ": Exec format error</p>"));
#if IVRA_SWEEP_STEP == 1 // sanitizers look at memory through pipes
    exporter_t without_pipes;
    without_pipes.forbid({SYS_pipe2}, EMFILE);
    without_pipes.serve();
    EXPECT_THAT(without_pipes.get("/").body,
                HasSubstr("<p class=\"failed\">Cannot make a pipe: Too many open files</p>"));
#endif
}

TEST(exporter, lends_a_closed_descriptor_to_nobody)
{
    exporter_t exporter;
    exporter.reader("exit 0\n").serve("", {.out = stream_t::closed, .err = stream_t::closed, .has_input = false});
    const fs::path descriptors = "/proc/" + std::to_string(exporter.process()) + "/fd";
    for (const char* descriptor : {"0", "1", "2"})
        EXPECT_EQ(fs::read_symlink(descriptors / descriptor), "/dev/null") << descriptor;
}

TEST(exporter, says_that_the_boards_of_its_host_cannot_be_listed)
{
    exporter_t exporter;
    exporter.file("{}}");
    exporter.serve();
    EXPECT_THAT(exporter.get("/metrics").body, HasSubstr("\nivra_exporter_collect_success 0\n"));
    EXPECT_THAT(exporter.get("/").body, HasSubstr("The boards of this host cannot be listed: "));
    const std::string document = exporter.get("/readings.json").body;
    EXPECT_THAT(document,
                HasSubstr(R"("health":"unknown","findings":[{"health":"unknown","text":"The boards of this host )"
                          "cannot be listed: "));
    EXPECT_THAT(document, HasSubstr(R"("board_count":0,"boards":[]})"));
    expect_valid(document);
}

TEST(exporter, does_not_start_with_what_it_cannot_do)
{
    exporter_t busy;
    busy.reader("exit 0\n").serve();
    exporter_t exporter;
    const std::string limits = (exporter.folder() / "limits.json").string();
    std::ofstream{limits} << "{}";
    const std::string place = "127.0.0.1:" + std::to_string(busy.port());
    EXPECT_EQ(exporter.run("--listen " + place),
              fails("ivra-bsp exporter: Cannot listen on " + place + ": Address already in use\n"));
    EXPECT_EQ(exporter.run("--listen 127.0.0.1:0 --jobs 65"), fails("ivra-bsp exporter: Expected 1 to 64 jobs\n"));
    EXPECT_EQ(exporter.run("--listen 127.0.0.1:0 --parts lights"),
              fails("ivra-bsp exporter: Unknown part 'lights': there are identity,flash,boot-image,sensors,modules\n"));
    const run_t run = exporter.run("--listen 127.0.0.1:0 --limits " + limits);
    EXPECT_TRUE(run.err.starts_with("ivra-bsp exporter: " + limits + ": ")) << run.err;
    EXPECT_EQ(run.status, 1);
    for (const auto& [call, error, why] :
         {std::tuple{SYS_signalfd4, EMFILE, "Cannot wait for signals: Too many open files"},
          {SYS_poll, ENOMEM, "Cannot wait for boards: Cannot allocate memory"}}) {
        exporter_t without;
        without.reader("exit 0\n").forbid({call}, error);
        EXPECT_EQ(without.run("--listen 127.0.0.1:0"), fails(std::string{"ivra-bsp exporter: "} + why + "\n"));
    }
    exporter.reader("exit 0\n");
    fs::remove(exporter.folder() / "bin/ivra-bsp-readings");
    EXPECT_EQ(exporter.run(""),
              fails("ivra-bsp exporter: Cannot run " + (exporter.folder() / "bin/ivra-bsp-readings").string() +
                    ": No such file or directory\n"));
    for (const char* address : {"", "127.0.0.1", ":9749", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1",
                                "localhost:1", "::1:9749", "[::1]", "[::1:9749", "[1.2.3.4]:9749", "1.2.3:9749"})
        EXPECT_EQ(exporter.run(std::vector<std::string>{"--listen", address}),
                  (run_t{"",
                         std::string{"ivra-bsp exporter: Expected an address and a port, such as 127.0.0.1:9749 or "
                                     "[::1]:9749, instead of '"} +
                             address + "'\nHelp: ivra-bsp exporter --help\n",
                         64}));
    EXPECT_EQ(exporter.run("--max-age 3601").status, 64);
    EXPECT_EQ(exporter.run("--max-age 1.5").status, 64);
    EXPECT_EQ(exporter.run("--bogus").status, 64);
    EXPECT_EQ(exporter.run("--help").status, 0);
    EXPECT_EQ(exporter.run("--version"), says("ivra-bsp-exporter " IVRA_BSP_VERSION "\n"));
}

TEST(exporter_text_file, holds_the_metrics_whole)
{
    exporter_t exporter;
    exporter.plug("m48l_xcvu7p").host(switch_host);
    const fs::path file = exporter.folder() / "ivra.prom";
    EXPECT_EQ(exporter.run("--textfile " + file.string()), says(""));
    EXPECT_EQ(samples(read_file(file)), switch_samples);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms{0644});
    EXPECT_FALSE(fs::exists(file.string() + ".tmp"));
}

TEST(exporter_text_file, says_what_could_not_be_read)
{
    exporter_t exporter;
    const fs::path file = exporter.folder() / "ivra.prom";
    exporter.reader(two_boards + "kill -9 $$\n");
    EXPECT_EQ(exporter.run("--textfile " + file.string()).status, 0);
    EXPECT_THAT(read_file(file), HasSubstr("ivra_board_up{uid=\"a\"} 1\nivra_board_up{uid=\"b\"} 0\n"));
    exporter.reader("echo '{\"format\":2}'\n");
    EXPECT_EQ(exporter.run("--textfile " + file.string()).status, 1);
    EXPECT_EQ(samples(read_file(file)), "");
    EXPECT_THAT(read_file(file), HasSubstr("\nivra_exporter_collect_success 0\n"));
}

TEST(exporter_text_file, stays_as_it_was_when_it_cannot_be_written)
{
    exporter_t exporter;
    exporter.reader("echo '{" + head + R"(,"announced":[]}')" + "\n");
    const fs::path file = exporter.folder() / "ivra.prom", beside = file.string() + ".tmp";
    std::ofstream{file} << "before";
    const auto refused = [&](const std::string& why) {
        EXPECT_EQ(exporter.run("--textfile " + file.string()), fails("ivra-bsp exporter: " + why + "\n"));
        EXPECT_EQ(read_file(file), "before");
    };
    fs::create_directory(beside);
    refused("Cannot write " + beside.string() + ": Is a directory");
    fs::remove(beside);
    fs::create_symlink(file, beside);
    refused("Cannot write " + beside.string() + ": Too many levels of symbolic links");
    fs::remove(beside);
    int other = ::open(beside.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    refused("Cannot write " + beside.string() + ": another process writes it");
    ::close(other);
    fs::remove(beside);
    ASSERT_EQ(::mkfifo(beside.c_str(), 0600), 0);
    other = ::open(beside.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    refused("Cannot write " + beside.string() + ": it is no file");
    ::close(other);
    fs::remove(beside);
    for (const auto& [call, error, why] :
         {std::tuple{SYS_ftruncate, EIO, "write " + beside.string() + ": Input/output error"},
          {SYS_fsync, ENOSPC, "write " + beside.string() + ": No space left on device"},
          {SYS_rename, EACCES, "replace " + file.string() + ": Permission denied"}}) {
        exporter.forbid({call}, error);
        refused("Cannot " + why);
        EXPECT_FALSE(fs::exists(beside)) << why;
    }
    exporter.forbid({}, 0);
    const std::string pipe = exporter.folder() / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(exporter.run("--textfile " + pipe),
              fails("ivra-bsp exporter: Cannot replace " + pipe + ": it is no file\n"));
    EXPECT_EQ(exporter.run("--textfile f --listen 127.0.0.1:1").status, 64);
    exporter.reader("sleep 0 & kill -TERM $PPID; sleep 20\n");
    refused("Ended by a signal; " + file.string() + " stays as it was");
}

} // namespace
} // namespace ivra::tests
