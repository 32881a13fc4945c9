#include "story.h"

#include "state/state.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace ivra::platform_tests {

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::SizeIs;
namespace vp = virtual_platform;

using bytes_t = std::vector<std::uint8_t>;

constexpr std::chrono::nanoseconds byte_time{86'805}; // 10 bits at 115200 baud

using std::this_thread::sleep_for;

/// A host with a BMC on a clock of the test's own.
class bmc : public host
{
protected:
    bmc()
    {
        ::setenv("IVRA_VIRTUAL_CLOCK", (folder / "clock").c_str(), 1);
        plug_bmc("{}");
    }

    void plug_bmc(const std::string& json)
    {
        plug({R"({"name": "board", "model": "bittware_xupp3r", "uid": "0000:01:00.0", "bmc": )" + json + "}"});
    }
};

/// The UART of a board.
class line_t
{
public:
    line_t() : uart_{ivra_uart_create(board_.root)} { EXPECT_NE(uart_, nullptr); }
    ~line_t() { ivra_uart_destroy(uart_); }
    line_t(const line_t&) = delete;
    line_t& operator=(const line_t&) = delete;

    void write(const bytes_t& bytes) { EXPECT_EQ(ivra_uart_write_all(uart_, bytes.data(), bytes.size(), 100), 0); }

    bytes_t read(std::size_t size = 64)
    {
        bytes_t bytes(size);
        const int count = ivra_uart_read(uart_, bytes.data(), size);
        EXPECT_GE(count, 0);
        bytes.resize(static_cast<std::size_t>(std::max(count, 0)));
        return bytes;
    }

    /// All that comes within a time, read every millisecond.
    bytes_t read_for(std::chrono::milliseconds time)
    {
        bytes_t all;
        for (auto elapsed = 0ms; elapsed < time; elapsed += 1ms) {
            sleep_for(1ms);
            const bytes_t some = read();
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    }

private:
    opened board_;
    ivra_uart* uart_;
};

/// What a host sends for a message: the frame in a buffer of 2 x L + 2 bytes that is zero behind the stop byte.
bytes_t framed(const bytes_t& message)
{
    static const std::map<std::uint8_t, std::uint8_t> escapes{
        {0xa0, 0xb0}, {0xa5, 0xb5}, {0xa6, 0xb6}, {0xaa, 0xba}, {0x1b, 0x3b}};
    bytes_t bytes{0xa0};
    for (const std::uint8_t byte : message) {
        const auto escape = escapes.find(byte);
        if (escape != escapes.end())
            bytes.push_back(0xaa);
        bytes.push_back(escape == escapes.end() ? byte : escape->second);
    }
    bytes.push_back(0xa5);
    bytes.resize(2 * message.size() + 2);
    return bytes;
}

/// The message in a frame, without escapes; EXPECTs a whole frame and nothing else.
bytes_t message_in(const bytes_t& frame)
{
    static const std::map<std::uint8_t, std::uint8_t> escaped{
        {0xb0, 0xa0}, {0xb5, 0xa5}, {0xb6, 0xa6}, {0xba, 0xaa}, {0x3b, 0x1b}};
    if (frame.size() < 2 || frame.front() != 0xa0 || frame.back() != 0xa5) {
        ADD_FAILURE() << "no frame, of " << frame.size() << " bytes";
        return {};
    }
    bytes_t message;
    for (std::size_t at = 1; at + 1 < frame.size(); ++at)
        message.push_back(frame[at] == 0xaa ? escaped.at(frame[++at]) : frame[at]);
    return message;
}

struct reply_t
{
    int code = -1;
    bytes_t data;
    bool operator==(const reply_t&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const reply_t& reply)
{
    return stream << "code " << reply.code << ", data " << ::testing::PrintToString(reply.data);
}

/// One request and its reply.
reply_t ask(line_t& line, std::uint8_t netfn, std::uint8_t command, const bytes_t& data = {})
{
    bytes_t request{static_cast<std::uint8_t>(netfn << 2), 0, command};
    request.insert(request.end(), data.begin(), data.end());
    line.write(framed(request));
    const bytes_t message = message_in(line.read_for(100ms));
    if (message.size() < 4)
        return {};
    EXPECT_EQ(message[0], (netfn + 1) << 2);
    EXPECT_EQ(message[1], 0U);
    EXPECT_EQ(message[2], command);
    return {message[3], {message.begin() + 4, message.end()}};
}

const bytes_t ask_device_id = framed({0x18, 0x00, 0x01});
const bytes_t device_id_frame = {0xa0, 0x1c, 0x00, 0x01, 0x00, 0x20, 0x81, 0x01, 0x00,
                                 0x02, 0x09, 0x18, 0x7b, 0x00, 0x01, 0x00, 0xa5};

bytes_t of_text(const std::string& text)
{
    return {text.begin(), text.end()};
}

bytes_t part(const bytes_t& bytes, std::size_t from, std::size_t to)
{
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

// ---- the line ----

TEST_F(bmc, answers_when_its_time_is_over_byte_by_byte)
{
    run([] {
        line_t line;
        line.write(ask_device_id);
        EXPECT_THAT(line.read(), SizeIs(0));
        sleep_for(5 * byte_time + 5ms + byte_time - 1ns); // to the stop byte; it thinks; its first byte
        EXPECT_THAT(line.read(), SizeIs(0));
        sleep_for(1ns);
        EXPECT_EQ(line.read(), (bytes_t{0xa0}));
        sleep_for(3 * byte_time);
        EXPECT_EQ(line.read(), (bytes_t{0x1c, 0x00, 0x01}));
        EXPECT_THAT(line.read(), SizeIs(0));
        sleep_for(13 * byte_time);
        EXPECT_EQ(line.read(), part(device_id_frame, 4, 17));
        sleep_for(1s);
        EXPECT_THAT(line.read(), SizeIs(0));
    });
}

TEST_F(bmc, has_the_latency_of_its_rack)
{
    plug_bmc(R"({"latency": "20 ms"})");
    run([] {
        line_t line;
        line.write(ask_device_id);
        sleep_for(6 * byte_time + 20ms - 1ns);
        EXPECT_THAT(line.read(), SizeIs(0));
        sleep_for(1ns);
        EXPECT_THAT(line.read(), SizeIs(1));
    });
}

TEST_F(bmc, ignores_what_is_not_in_a_frame)
{
    run([] {
        line_t line;
        line.write({0x00, 0xa5, 0xaa, 0x18, 0x00, 0x01, 0xa5}); // no start
        line.write({0xa0, 0xa5});                               // an empty frame
        line.write({0xa0, 0x18, 0x00, 0xa5});                   // shorter than any message
        line.write({0xa0, 0x1c, 0x00, 0x01, 0xa5});             // a response
        line.write({0xa0, 0x18, 0x00, 0x01, 0xaa, 0x00, 0xa5}); // an escape that there is not
        EXPECT_THAT(line.read_for(100ms), SizeIs(0));
        line.write({0xa0, 0x28, 0x00, 0xa0, 0x18, 0x00, 0x01, 0xa5}); // begun anew
        EXPECT_EQ(line.read_for(100ms), device_id_frame);
    });
}

TEST_F(bmc, a_frame_may_come_in_pieces_from_several_processes)
{
    run([] { line_t{}.write({0xa0, 0x18}); });
    run([] {
        line_t line;
        line.write({0x00, 0x01, 0xa5});
        EXPECT_EQ(line.read_for(100ms), device_id_frame);
    });
}

TEST_F(bmc, a_frame_longer_than_any_request_is_dropped)
{
    run([] {
        line_t line;
        bytes_t frame(5000, 0x18);
        frame.front() = 0xa0;
        frame.back() = 0xa5;
        line.write(frame);
        sleep_for(1s);
        EXPECT_THAT(line.read(), SizeIs(0));
        line.write(ask_device_id);
        EXPECT_EQ(line.read_for(100ms), device_id_frame);
    });
}

TEST_F(bmc, nobody_reads_an_answer_and_it_waits_for_the_next_process)
{
    run([] {
        line_t line;
        line.write(ask_device_id);
        sleep_for(6ms);
        EXPECT_EQ(line.read(), part(device_id_frame, 0, 6)) << "565 us after the first could set out";
    });
    run([] {
        sleep_for(1h);
        line_t line;
        EXPECT_EQ(line.read(), part(device_id_frame, 6, 17));
        line.write(ask_device_id);
        line.write(ask_device_id);
    });
    run([] {
        line_t line;
        bytes_t twice = device_id_frame;
        twice.insert(twice.end(), device_id_frame.begin(), device_id_frame.end());
        EXPECT_EQ(line.read_for(100ms), twice);
    });
}

TEST_F(bmc, the_line_waits_while_the_FIFO_is_full)
{
    run([] {
        line_t line;
        line.write(framed({0x28, 0x00, 0x11, 0x00, 0x00, 0x00, 48})); // 48 bytes of FRU: 55 with what is around them
        sleep_for(1s);
        EXPECT_THAT(line.read(), SizeIs(16));
        EXPECT_THAT(line.read(), SizeIs(0));
        sleep_for(byte_time);
        EXPECT_THAT(line.read(), SizeIs(1));
        sleep_for(1s);
        EXPECT_THAT(line.read(7), SizeIs(7));
        EXPECT_THAT(line.read(), SizeIs(9));
    });
}

TEST_F(bmc, the_depth_of_the_FIFO_is_the_racks)
{
    for (const std::size_t depth : {1U, 2U, 64U}) {
        plug_bmc(R"({"depth": )" + std::to_string(depth) + "}");
        run([&] {
            line_t line;
            for (int n = 0; n < 8; ++n)
                line.write(ask_device_id);
            sleep_for(1s);
            EXPECT_THAT(line.read(), SizeIs(depth));
        });
    }
}

// 16 times 0xaa, 0xa5, 0x1b and 0x11 by turns: nearly every byte is a pair on the line.
const std::string escapes_in_fru = R"({"fru": {"raw": "aaa51b11aaa51b11aaa51b11aaa51b11"})";
const bytes_t ask_for_escapes = framed({0x28, 0x00, 0x11, 0x00, 0x00, 0x00, 16});
const bytes_t escapes_frame = {0xa0, 0x2c, 0x00, 0x11, 0x00, 0x10,                   //
                               0xaa, 0xba, 0xaa, 0xb5, 0xaa, 0x3b, 0x11, 0xaa, 0xba, //
                               0xaa, 0xb5, 0xaa, 0x3b, 0x11, 0xaa, 0xba, 0xaa, 0xb5, //
                               0xaa, 0x3b, 0x11, 0xaa, 0xba, 0xaa, 0xb5, 0xaa, 0x3b, 0x11, 0xa5};

TEST_F(bmc, no_read_ends_between_an_escape_and_its_partner_whatever_the_timing)
{
    plug_bmc(escapes_in_fru + "}");
    run([] {
        line_t line;
        for (const auto pause : {byte_time / 3, byte_time, 2 * byte_time, 5 * byte_time + 1ns, 20 * byte_time}) {
            for (const std::size_t size : {2U, 3U, 16U, 64U}) {
                line.write(ask_for_escapes);
                bytes_t all;
                for (int n = 0; n < 1000 && all.size() < escapes_frame.size(); ++n) {
                    sleep_for(pause);
                    const bytes_t some = line.read(size);
                    if (!some.empty()) {
                        EXPECT_NE(some.back(), 0xaa);
                    }
                    all.insert(all.end(), some.begin(), some.end());
                }
                EXPECT_EQ(all, escapes_frame);
            }
        }
    });
}

TEST_F(bmc, a_read_of_one_byte_and_a_FIFO_of_one_byte_split_pairs)
{
    plug_bmc(escapes_in_fru + "}");
    run([] {
        line_t line;
        line.write(ask_for_escapes);
        sleep_for(1s);
        for (std::size_t n = 0; n < 7; ++n)
            EXPECT_EQ(line.read(1), (bytes_t{escapes_frame.at(n)}));
    });
    plug_bmc(escapes_in_fru + R"(, "depth": 1})");
    run([] {
        line_t line;
        line.write(ask_for_escapes);
        EXPECT_EQ(line.read_for(100ms), escapes_frame);
    });
}

TEST_F(bmc, successive_reads_give_the_pieces_of_the_rack_and_each_answer_begins_anew)
{
    plug_bmc(escapes_in_fru + R"(, "depth": 64, "pieces": [7, 1, 20]})");
    run([] {
        line_t line;
        line.write(ask_for_escapes);
        sleep_for(12 * byte_time + 5ms); // of which the request takes 9
        EXPECT_THAT(line.read(), SizeIs(0)) << "7 bytes are not there yet";
        line.write(ask_for_escapes);
        sleep_for(1s);
        for (int n = 0; n < 2; ++n) {
            EXPECT_EQ(line.read(), part(escapes_frame, 0, 7)) << "a pair is split where the rack says so";
            EXPECT_EQ(line.read(), part(escapes_frame, 7, 8));
            EXPECT_EQ(line.read(), part(escapes_frame, 8, 28));
            EXPECT_EQ(line.read(), part(escapes_frame, 28, 35)) << "as it comes, and no more than this answer";
            sleep_for(1s);
        }
    });
}

TEST_F(bmc, a_piece_ends_with_its_answer)
{
    plug_bmc(R"({"depth": 64, "pieces": [20, 1]})");
    run([] {
        line_t line;
        line.write(ask_device_id);
        sleep_for(6 * byte_time + 5ms + 16 * byte_time - 1ns); // its last byte but one has come
        EXPECT_THAT(line.read(), SizeIs(0));
        sleep_for(1ns);
        EXPECT_EQ(line.read(), device_id_frame) << "no more than these 17 will come";
        line.write(ask_device_id);
        line.write(ask_device_id);
        sleep_for(1s);
        EXPECT_EQ(line.read(), device_id_frame) << "3 bytes of the next answer are none of this piece";
        EXPECT_EQ(line.read(), device_id_frame);
    });
}

TEST_F(bmc, one_piece_can_fill_a_buffer_of_64_bytes)
{
    plug_bmc(R"({"depth": 64, "pieces": [64], "fru": {"raw": ")" + std::string(2 * 58, '1') + R"("}})");
    run([] {
        line_t line;
        line.write(framed({0x28, 0x00, 0x11, 0x00, 0x00, 0x00, 57}));
        sleep_for(1s);
        const bytes_t frame = line.read();
        EXPECT_THAT(frame, SizeIs(64));
        EXPECT_EQ(frame.back(), 0xa5);
    });
}

TEST_F(bmc, that_is_silent_answers_nothing)
{
    plug_bmc(R"({"silent": true})");
    run([] {
        line_t line;
        line.write(ask_device_id);
        EXPECT_THAT(line.read_for(1s), SizeIs(0));
    });
}

TEST_F(bmc, a_design_without_one_has_no_UART)
{
    plug_bmc("null");
    run([] {
        const opened board;
        EXPECT_FAILS(nullptr, ENODEV, ivra_uart_create(board.root));
    });
}

TEST_F(bmc, answers_nothing_on_a_second_UART)
{
    plug({R"({"model": "bittware_xupp3r", "cores": [{"hardware_id": 48, "address": 0, "size": 4096},
              {"hardware_id": 48, "address": 4096, "size": 4096}]})"});
    run([] {
        const opened board;
        ivra_uart* uart = ivra_uart_create(board.core(48, 1));
        ASSERT_EQ(ivra_uart_write_all(uart, ask_device_id.data(), ask_device_id.size(), 100), 0);
        sleep_for(1s);
        bytes_t buffer(64);
        EXPECT_EQ(ivra_uart_read(uart, buffer.data(), buffer.size()), 0);
        ivra_uart_destroy(uart);
    });
}

TEST_F(bmc, a_process_that_is_killed_after_writing_leaves_its_answer_to_the_next_one)
{
    plan(R"([{"call": "ivra_uart_write_all", "kill": "after"}])");
    EXPECT_EQ(end_of(start([] { line_t{}.write(ask_device_id); })).signal, SIGKILL);
    ::unsetenv("IVRA_VIRTUAL_FAULTS");
    run([] { EXPECT_EQ(line_t{}.read_for(20ms), device_id_frame); });
}

TEST_F(bmc, a_clock_that_was_set_back_finds_everything_arrived)
{
    run([] {
        sleep_for(1h);
        line_t{}.write(ask_device_id);
    });
    std::filesystem::remove(folder / "clock");
    run([] {
        line_t line;
        bytes_t all = line.read(); // the FIFO was full
        sleep_for(byte_time);
        const bytes_t rest = line.read();
        all.insert(all.end(), rest.begin(), rest.end());
        EXPECT_EQ(all, device_id_frame);
        line.write(ask_device_id);
        EXPECT_EQ(line.read_for(20ms), device_id_frame);
    });
}

TEST_F(bmc, of_a_host_that_never_reads_it_keeps_16_answers)
{
    run([] {
        line_t line;
        for (int n = 0; n < 20; ++n)
            line.write(ask_device_id);
        EXPECT_THAT(line.read_for(1s), SizeIs(16 * device_id_frame.size()));
        line.write(ask_device_id);
        EXPECT_EQ(line.read_for(1s), device_id_frame);
    });
}

TEST_F(bmc, damage_to_what_it_remembers_is_the_state_at_the_start)
{
    run([] { line_t{}.write(ask_device_id); });
    for (const auto& entry : std::filesystem::recursive_directory_iterator{state}) {
        if (entry.path().filename() != "bmc")
            continue;
        const auto size = std::filesystem::file_size(entry.path());
        std::ofstream{entry.path(), std::ios::binary} << std::string(size, '\xff');
    }
    run([] {
        line_t line;
        EXPECT_THAT(line.read(), SizeIs(0));
        line.write(ask_device_id);
        EXPECT_EQ(line.read_for(100ms), device_id_frame);
    });
}

TEST_F(bmc, numbers_that_cannot_be_in_what_it_remembers_are_the_state_at_the_start)
{
    using memory_t = vp::bmc_memory_t;
    void (*const damages[])(memory_t & memory) = {
        [](memory_t& memory) { memory.queued = memory.answers[0].bytes = 4097; },
        [](memory_t& memory) { memory.waiting = memory.queued + 1; },
        [](memory_t& memory) { memory.answer_count = 17; },
        [](memory_t& memory) { memory.message_size = 513; },
        [](memory_t& memory) { --memory.answers[0].bytes; },
        [](memory_t& memory) { ++memory.queued; },
        [](memory_t& memory) { memory.answers[0].due = INT64_MAX; },
        [](memory_t& memory) { memory.changed_at = INT64_MIN; },
        [](memory_t& memory) { memory.received_until = INT64_MAX; },
        [](memory_t& memory) { memory.busy_until = INT64_MAX; },
        [](memory_t& memory) { memory.line_free_at = INT64_MAX; },
    };
    for (std::size_t row = 0; row < std::size(damages); ++row) {
        SCOPED_TRACE(row);
        run([] { line_t{}.write(ask_device_id); });
        const auto loaded = vp::load_rack(rack);
        const auto path = vp::board_state_folder(loaded, loaded.accelerators.at(0)) / "bmc";
        vp::bmc_file file{{vp::open_own_file(AT_FDCWD, path.c_str(), path, O_RDWR), path, vp::file_access::read_write}};
        memory_t memory = file.read();
        ASSERT_EQ(memory.answer_count, 1U);
        damages[row](memory);
        file.write(memory);
        run([] {
            line_t line;
            sleep_for(1s);
            EXPECT_THAT(line.read(), SizeIs(0));
            line.write(ask_device_id);
            EXPECT_EQ(line.read_for(100ms), device_id_frame);
        });
    }
}

// ---- what goes wrong, where it is asked for ----

TEST_F(bmc, a_rule_changes_the_answers_that_it_is_about_and_no_others)
{
    plug_bmc(R"({"answers": [
        {"to": "0a11", "nth": 2, "code": "0xc0"},
        {"to": "042d07", "code": "0xce"},
        {"to": "0601", "nth": 2, "data": "010203"},
        {"to": "2e08", "code": "0x00", "data": "1234"}]})");
    run([] {
        line_t line;
        const bytes_t two_bytes{0x00, 0x00, 0x00, 0x02};
        EXPECT_EQ(ask(line, 0x0a, 0x11, two_bytes), (reply_t{0, {2, 1, 0}}));
        EXPECT_EQ(ask(line, 0x0a, 0x11, two_bytes), (reply_t{0xc0, {}}));
        EXPECT_EQ(ask(line, 0x0a, 0x11, two_bytes), (reply_t{0, {2, 1, 0}}));
        EXPECT_EQ(ask(line, 0x04, 0x2d, {7}), (reply_t{0xce, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x2d, {8}).code, 0);
        EXPECT_THAT(ask(line, 0x06, 0x01).data, SizeIs(11));
        EXPECT_EQ(ask(line, 0x06, 0x01), (reply_t{0, {1, 2, 3}}));
        EXPECT_EQ(ask(line, 0x2e, 0x08, {0x18, 0x7b, 0x00, 0x07}), (reply_t{0, {0x12, 0x34}}));
    });
    run([] { // counted since the board's state began, not in the process
        line_t line;
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 0, 0, 2}).code, 0);
    });
}

TEST_F(bmc, noise_lost_bytes_and_wrong_escapes_come_where_the_rack_says)
{
    plug_bmc(R"({"answers": [
        {"to": "0601", "nth": 1, "noise": "ffaaa5"},
        {"to": "0601", "nth": 2, "lose": [0, 3, 16, 17]},
        {"to": "0601", "nth": 3, "frame": "a01caa000100a5"},
        {"to": "0601", "nth": 4, "noise": "00", "frame": "", "lose": [0]}]})");
    run([] {
        line_t line;
        bytes_t noisy{0xff, 0xaa, 0xa5};
        noisy.insert(noisy.end(), device_id_frame.begin(), device_id_frame.end());
        line.write(ask_device_id);
        EXPECT_EQ(line.read_for(100ms), noisy);
        line.write(ask_device_id);
        bytes_t rest = part(device_id_frame, 1, 3);
        const bytes_t end = part(device_id_frame, 4, 16);
        rest.insert(rest.end(), end.begin(), end.end());
        EXPECT_EQ(line.read_for(100ms), rest);
        line.write(ask_device_id);
        EXPECT_EQ(line.read_for(100ms), (bytes_t{0xa0, 0x1c, 0xaa, 0x00, 0x01, 0x00, 0xa5}));
        line.write(ask_device_id);
        EXPECT_THAT(line.read_for(100ms), SizeIs(0));
        line.write(ask_device_id);
        EXPECT_EQ(line.read_for(100ms), device_id_frame);
    });
}

TEST_F(bmc, an_answer_can_be_late_or_never_come_or_be_cut_into_pieces)
{
    plug_bmc(R"({"answers": [
        {"to": "0601", "nth": 1, "latency": "never"},
        {"to": "0601", "nth": 2, "latency": "110 ms"},
        {"to": "0601", "nth": 4, "pieces": [5, 2]}]})");
    run([] {
        line_t line;
        line.write(ask_device_id);
        EXPECT_THAT(line.read_for(1s), SizeIs(0));
        line.write(ask_device_id);
        EXPECT_THAT(line.read_for(110ms), SizeIs(0));
        line.write(ask_device_id); // it is still at the one before
        bytes_t both = device_id_frame;
        both.insert(both.end(), device_id_frame.begin(), device_id_frame.end());
        EXPECT_EQ(line.read_for(100ms), both);
        line.write(ask_device_id);
        sleep_for(100ms);
        EXPECT_THAT(line.read(), SizeIs(5));
        EXPECT_THAT(line.read(), SizeIs(2));
    });
}

TEST_F(bmc, the_longest_latency_and_the_latest_clock_are_numbers_like_any_other)
{
    plug_bmc(R"({"latency": "999999999.999999999 s"})");
    run([] {
        line_t line;
        for (int n = 0; n < 20; ++n)
            line.write(ask_device_id);
        EXPECT_THAT(line.read_for(100ms), SizeIs(0));
    });
    const std::int64_t end_of_time = INT64_MAX;
    std::ofstream{folder / "clock", std::ios::binary}.write(
        static_cast<const char*>(static_cast<const void*>(&end_of_time)), sizeof end_of_time);
    run([] {
        line_t line;
        EXPECT_EQ(line.read(16), part(device_id_frame, 0, 16));
        line.write(ask_device_id);
    });
}

TEST_F(bmc, a_frame_that_breaks_off_behind_an_escape_gives_the_escape)
{
    plug_bmc(R"({"answers": [{"to": "", "frame": "a01caa"}]})");
    run([] {
        line_t line;
        line.write(ask_device_id);
        EXPECT_EQ(line.read_for(100ms), (bytes_t{0xa0, 0x1c, 0xaa}));
    });
}

TEST_F(bmc, a_fault_plan_cuts_reads_wherever_it_says_and_garbles_them)
{
    plug_bmc(escapes_in_fru + "}");
    plan(R"([{"call": "ivra_uart_read", "nth": 1, "short": 7}, {"call": "ivra_uart_read", "nth": 2, "garble": "01"}])");
    run([] {
        line_t line;
        line.write(ask_for_escapes);
        sleep_for(1s);
        EXPECT_EQ(line.read(), part(escapes_frame, 0, 7)) << "the pair is split";
        EXPECT_EQ(line.read(), (bytes_t{0xbb, 0xaa, 0xb5, 0xaa, 0x3b, 0x11, 0xaa, 0xba})) << "a bit of the first";
    });
}

TEST_F(bmc, a_write_that_is_cut_short_reaches_it_in_part)
{
    plan(R"([{"call": "ivra_uart_write_all", "nth": 1, "short": 4, "errno": "ETIMEDOUT"}])");
    run([] {
        const opened board;
        ivra_uart* uart = ivra_uart_create(board.root);
        EXPECT_FAILS(-1, ETIMEDOUT, ivra_uart_write_all(uart, ask_device_id.data(), ask_device_id.size(), 100));
        ivra_uart_destroy(uart);
        line_t line;
        EXPECT_THAT(line.read_for(100ms), SizeIs(0));
        line.write({0xa5});
        EXPECT_EQ(line.read_for(100ms), device_id_frame);
    });
}

TEST_F(bmc, the_trace_shows_the_bytes_of_the_line)
{
    run([] {
        line_t line;
        line.write(ask_device_id);
        sleep_for(1s);
        line.read();
    });
    EXPECT_THAT(trace(),
                ::testing::IsSupersetOf(
                    {"ivra_uart_write_all(0000:01:00.0, [a0 18 00 01 a5 00 00 00], 100) = 0"s,
                     "ivra_uart_read(0000:01:00.0, 64) = 16: [a0 1c 00 01 00 20 81 01 00 02 09 18 7b 00 01 00]"s}));
}

// ---- commands ----

TEST_F(bmc, says_what_it_is_and_that_it_has_sensor_records)
{
    run([] {
        line_t line;
        const reply_t id = ask(line, 0x06, 0x01);
        EXPECT_EQ(id.code, 0);
        ASSERT_THAT(id.data, SizeIs(11));
        EXPECT_EQ(id.data[1] & 0x80, 0x80) << "provides device SDRs";
        EXPECT_EQ(id.data[4], 0x02) << "IPMI 2.0";
        EXPECT_EQ(id.data[5], 0x09) << "sensors and FRU";
        EXPECT_EQ(part(id.data, 6, 9), (bytes_t{0x18, 0x7b, 0x00}));
    });
}

TEST_F(bmc, refuses_what_it_does_not_know_at_once)
{
    run([] {
        line_t line;
        EXPECT_EQ(ask(line, 0x06, 0x02), (reply_t{0xc1, {}}));
        EXPECT_EQ(ask(line, 0x0a, 0x20), (reply_t{0xc1, {}}));
        EXPECT_EQ(ask(line, 0x3e, 0xff, {1, 2, 3}), (reply_t{0xc1, {}}));
        EXPECT_EQ(ask(line, 0x2e, 0x07, {0x18, 0x7b, 0x00}), (reply_t{0xc1, {}}));
        EXPECT_EQ(ask(line, 0x2e, 0x08, {0x18, 0x7b, 0x01, 0x07}), (reply_t{0xc1, {}})) << "of another manufacturer";
        EXPECT_EQ(ask(line, 0x06, 0x01, {0}), (reply_t{0xc7, {}}));
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 0, 0}), (reply_t{0xc7, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0, 0, 0, 1, 0}), (reply_t{0xc7, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x2d), (reply_t{0xc7, {}}));
    });
}

TEST_F(bmc, echoes_sequence_and_LUN)
{
    run([] {
        line_t line;
        line.write(framed({0x1a, 0xa5, 0x01}));
        const bytes_t message = message_in(line.read_for(100ms));
        ASSERT_THAT(message, SizeIs(15));
        EXPECT_EQ(part(message, 0, 4), (bytes_t{0x1e, 0xa5, 0x01, 0x00}));
    });
}

TEST_F(bmc, serves_its_FRU_at_any_offset_and_length)
{
    plug_bmc(
        R"({"fru": {"manufacturer": "VIRTUAL", "product": "XUPP3R", "serial": "VRTP3R0001", "part_number": "VRT-P3R",
        "file_id": "", "extra": ["A", "xy"]}})");
    // 8 bytes of header; then version, length, language, date; the fields; the end; padding; the checksum.
    bytes_t image{0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0xfe, 0x01, 0x06, 0x19, 0x00, 0x00, 0x00};
    for (const std::string& field : {"\xc7VIRTUAL"s, "\xc6XUPP3R"s, "\xcaVRTP3R0001"s, "\xc7VRT-P3R"s, "\xc0"s,
                                     "\x01"
                                     "A"s,
                                     "\xc2xy"s, "\xc1"s}) {
        const bytes_t bytes = of_text(field);
        image.insert(image.end(), bytes.begin(), bytes.end());
    }
    ASSERT_LT(image.size(), 8U + 48U);
    image.resize(8 + 48);
    std::uint8_t sum = 0;
    for (std::size_t at = 8; at < image.size(); ++at)
        sum = static_cast<std::uint8_t>(sum + image[at]);
    image.back() = static_cast<std::uint8_t>(0x100 - sum);
    run([&] {
        line_t line;
        EXPECT_EQ(ask(line, 0x0a, 0x10, {0}), (reply_t{0, {56, 0, 0}}));
        EXPECT_EQ(ask(line, 0x0a, 0x10, {1}), (reply_t{0xcb, {}}));
        const auto piece = [&](std::size_t from, std::size_t to) {
            bytes_t data{static_cast<std::uint8_t>(to - from)};
            data.insert(data.end(), image.begin() + static_cast<std::ptrdiff_t>(from),
                        image.begin() + static_cast<std::ptrdiff_t>(to));
            return reply_t{0, data};
        };
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 0, 0, 8}), piece(0, 8));
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 8, 0, 6}), piece(8, 14));
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 14, 0, 42}), piece(14, 56));
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 50, 0, 255}), piece(50, 56)) << "as many as there are";
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 55, 0, 0}), (reply_t{0, {0}}));
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 56, 0, 1}), (reply_t{0xc9, {}}));
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 0, 1, 1}), (reply_t{0xc9, {}}));
        EXPECT_EQ(ask(line, 0x0a, 0x11, {1, 0, 0, 8}), (reply_t{0xcb, {}}));
    });
}

TEST_F(bmc, a_FRU_can_end_early_or_be_raw)
{
    plug_bmc(R"({"fru": {"manufacturer": "M1", "product": "P2", "serial": null, "extra": ["no"]}})");
    run([] {
        line_t line;
        const reply_t area = ask(line, 0x0a, 0x11, {0, 8, 0, 16});
        ASSERT_EQ(area.code, 0);
        ASSERT_THAT(area.data, SizeIs(17));
        EXPECT_EQ(part(area.data, 1, 14), (bytes_t{1, 2, 0x19, 0, 0, 0, 0xc2, 'M', '1', 0xc2, 'P', '2', 0xc1}));
    });
    plug_bmc(R"({"fru": {"raw": "00ff"}})");
    run([] {
        line_t line;
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 0, 0, 8}), (reply_t{0, {2, 0x00, 0xff}}));
    });
    plug_bmc(R"({"fru": {"raw": ""}})");
    run([] {
        line_t line;
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 0, 0, 8}), (reply_t{0xc9, {}}));
    });
}

TEST_F(bmc, a_large_FRU_is_read_by_offsets_beyond_255)
{
    std::string hex;
    for (int n = 0; n < 600; ++n)
        hex += n == 400 ? "77" : "00";
    plug_bmc(R"({"fru": {"raw": ")" + hex + R"("}})");
    run([] {
        line_t line;
        EXPECT_EQ(ask(line, 0x0a, 0x10, {0}), (reply_t{0, {0x58, 0x02, 0}}));
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 0x90, 0x01, 2}), (reply_t{0, {2, 0x77, 0x00}}));
        EXPECT_THAT(ask(line, 0x0a, 0x11, {0, 0, 0, 255}).data, SizeIs(256));
    });
}

TEST_F(bmc, its_boot_image_is_chosen_and_seen_by_another_process)
{
    const bytes_t next{0x18, 0x7b, 0x00, 0x07};
    const auto image = [&](line_t& line) { return ask(line, 0x2e, 0x08, next); };
    const auto choose = [](line_t& line, std::uint8_t value) {
        return ask(line, 0x2e, 0x09, {0x18, 0x7b, 0x00, 0x07, value});
    };
    plug_bmc(R"({"boot_image": "none", "configured_from": "backup"})");
    run([&] {
        line_t line;
        EXPECT_EQ(image(line), (reply_t{0, {0x18, 0x7b, 0x00, 0x04}}));
        EXPECT_EQ(choose(line, 0x01), (reply_t{0, {0x18, 0x7b, 0x00}}));
        EXPECT_EQ(choose(line, 0x02).code, 0xcc) << "no image has this code";
        EXPECT_EQ(ask(line, 0x2e, 0x09, {0x18, 0x7b, 0x00, 0x01, 0x00}).code, 0xcc) << "cannot be set";
        EXPECT_EQ(ask(line, 0x2e, 0x08, {0x18, 0x7b, 0x00, 0x02}).code, 0xcc);
    });
    run([&] {
        line_t line;
        EXPECT_EQ(image(line), (reply_t{0, {0x18, 0x7b, 0x00, 0x01}}));
        EXPECT_EQ(ask(line, 0x2e, 0x08, {0x18, 0x7b, 0x00, 0x01}), (reply_t{0, {0x18, 0x7b, 0x00, 0x02}}));
        EXPECT_EQ(choose(line, 0x00).code, 0);
        EXPECT_EQ(image(line), (reply_t{0, {0x18, 0x7b, 0x00, 0x00}}));
        EXPECT_EQ(choose(line, 0x04).code, 0);
        EXPECT_EQ(image(line), (reply_t{0, {0x18, 0x7b, 0x00, 0x04}}));
    });
    plug_bmc(R"({"boot_image": "0x09", "configured_from": 3})");
    run([&] {
        line_t line;
        EXPECT_EQ(image(line), (reply_t{0, {0x18, 0x7b, 0x00, 0x09}}));
        EXPECT_EQ(ask(line, 0x2e, 0x08, {0x18, 0x7b, 0x00, 0x01}), (reply_t{0, {0x18, 0x7b, 0x00, 0x03}}));
    });
}

TEST_F(bmc, two_processes_that_write_at_once_leave_whole_frames)
{
    plug_bmc(R"({"latency": "0 s"})");
    const auto story = [] {
        line_t line;
        for (int n = 0; n < 4; ++n)
            line.write(ask_device_id);
    };
    const ::pid_t children[] = {start(story), start(story), start(story)};
    for (const ::pid_t child : children)
        EXPECT_EQ(end_of(child).status, 0);
    run([] { EXPECT_THAT(line_t{}.read_for(1s), SizeIs(12 * device_id_frame.size())); });
}

// ---- sensors ----

const std::string two_sensors = R"({"sensors": {"only": true, "list": [
    {"name": "12V0", "number": "0x21", "unit": "V", "value": 12.033, "m": 63, "r_exp": -3},
    {"name": "Fan inlet air temperature", "unit": "degrees C", "modifier_unit": "RPM", "modifier": "per", "rate": "min",
     "percent": true, "format": "twos complement", "linearisation": "1/x", "m": -512, "b": -2, "r_exp": -8, "b_exp": 7,
     "available": false}]}})";

TEST_F(bmc, serves_sensor_records_that_a_host_can_walk)
{
    plug_bmc(two_sensors);
    bytes_t first(64);
    const std::pair<std::size_t, int> first_bytes[] = {
        {0, 1},     {2, 0x51},  {3, 1},     {4, 0x3b}, {5, 0x20}, {7, 0x21}, {8, 7},
        {9, 1},     {10, 0x7f}, {11, 0x40}, {12, 2},   {13, 1},   {21, 4},   {24, 63},
        {29, 0xd0}, {34, 255},  {47, 0xc4}, {48, '1'}, {49, '2'}, {50, 'V'}, {51, '0'}};
    for (const auto& [at, value] : first_bytes)
        first.at(at) = static_cast<std::uint8_t>(value);
    run([&] {
        line_t line;
        EXPECT_EQ(ask(line, 0x04, 0x20), (reply_t{0, {2, 1}}));
        EXPECT_EQ(ask(line, 0x04, 0x22), (reply_t{0, {1, 0}}));
        bytes_t expected{2, 0};
        expected.insert(expected.end(), first.begin(), first.end());
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0, 0, 0, 64}), (reply_t{0, expected}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 1, 0, 0, 64}), (reply_t{0, expected})) << "0 is the first one";
        EXPECT_EQ(ask(line, 0x04, 0x21, {9, 9, 1, 0, 0, 0xff}), (reply_t{0, expected})) << "all of it";
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 1, 0, 48, 4}), (reply_t{0, {2, 0, '1', '2', 'V', '0'}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 1, 0, 63, 2}), (reply_t{0, {2, 0, 0}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 1, 0, 64, 1}), (reply_t{0xc9, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 3, 0, 0, 64}), (reply_t{0xcb, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0, 1, 0, 64}), (reply_t{0xcb, {}}));

        const reply_t second = ask(line, 0x04, 0x21, {0, 0, 2, 0, 0, 64});
        ASSERT_THAT(second.data, SizeIs(66));
        EXPECT_EQ(part(second.data, 0, 5), (bytes_t{0xff, 0xff, 2, 0, 0x51}));
        EXPECT_EQ(second.data[2 + 4], 48 + 25 - 5);
        EXPECT_EQ(second.data[2 + 7], 2) << "its place is its number";
        // format 2, per minute, one unit per the other, percentage; M and B with two high bits; -8 and 7
        EXPECT_EQ(part(second.data, 2 + 20, 2 + 30), (bytes_t{0xa3, 1, 18, 7, 0x00, 0x80, 0xfe, 0xc0, 0, 0x87}));
        EXPECT_EQ(second.data[2 + 47], 0xc0 | 25);
        bytes_t name{0xff, 0xff};
        const bytes_t text = of_text("Fan inlet air temperature");
        name.insert(name.end(), text.begin(), text.end());
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 2, 0, 48, 25}), (reply_t{0, name}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0xff, 0xff, 48, 25}), (reply_t{0, name})) << "the last one";
    });
}

TEST_F(bmc, gives_readings_by_sensor_number)
{
    plug_bmc(two_sensors);
    run([] {
        line_t line;
        EXPECT_EQ(ask(line, 0x04, 0x2d, {0x21}), (reply_t{0, {191, 0xc0, 0xc0}})); // 191 x 63 / 1000
        EXPECT_EQ(ask(line, 0x04, 0x2d, {2}), (reply_t{0, {0x00, 0xe0, 0x00}}));
        EXPECT_EQ(ask(line, 0x04, 0x2d, {1}), (reply_t{0xcb, {}}));
    });
}

TEST_F(bmc, records_and_readings_can_be_raw_and_the_next_record_wrong)
{
    plug_bmc(
        R"({"sensors": {"only": true, "list": [{"record": "00005102010203042a", "response": "80c0", "next": "0x0001"},
        {"name": "x", "raw": "0x7f", "next": 9}]}})");
    run([] {
        line_t line;
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0, 0, 0, 64}),
                  (reply_t{0, {1, 0, 0x00, 0x00, 0x51, 0x02, 0x01, 0x02, 0x03, 0x04, 0x2a}}));
        EXPECT_EQ(ask(line, 0x04, 0x2d, {0x04}), (reply_t{0, {0x80, 0xc0}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 2, 0, 0, 1}), (reply_t{0, {9, 0, 2}}));
        EXPECT_EQ(ask(line, 0x04, 0x2d, {2}), (reply_t{0, {0x7f, 0xc0, 0xc0}}));
    });
}

TEST_F(bmc, serves_records_under_the_IDs_that_they_were_captured_with)
{
    // A compact record, the locator of a FRU, and the sensor of another number that the latter seems to have.
    std::ofstream{folder / "sdr.bin", std::ios::binary} << "\x07\0\x51\x02\x03\x20\0\x31"s
                                                        << "\x09\x01\x51\x11\x03\x20\0\x32"s;
    plug_bmc(R"({"records": {"file": "sdr.bin"}, "sensors": [{"name": "a", "number": "0x32", "raw": 5}]})");
    run([] {
        line_t line;
        const bytes_t first{0x09, 0x01, 0x07, 0, 0x51, 0x02, 0x03, 0x20, 0, 0x31};
        const bytes_t second{0x0a, 0x01, 0x09, 0x01, 0x51, 0x11, 0x03, 0x20, 0, 0x32};
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0, 0, 0, 64}), (reply_t{0, first}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 7, 0, 0, 64}), (reply_t{0, first}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 9, 1, 0, 64}), (reply_t{0, second}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0x0a, 1, 0, 4}), (reply_t{0, {0xff, 0xff, 0x0a, 0x01, 0x51, 0x01}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0xff, 0xff, 0, 2}), (reply_t{0, {0xff, 0xff, 0x0a, 0x01}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 1, 0, 0, 64}), (reply_t{0xcb, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 8, 0, 0, 64}), (reply_t{0xcb, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x20), (reply_t{0, {2, 1}})) << "sensors";
        EXPECT_EQ(ask(line, 0x04, 0x20, {1}), (reply_t{0, {3, 1}})) << "records";
        EXPECT_EQ(ask(line, 0x04, 0x2d, {0x31}), (reply_t{0, {0x00, 0xe0, 0x00}}));
        EXPECT_EQ(ask(line, 0x04, 0x2d, {0x32}), (reply_t{0, {0x05, 0xc0, 0xc0}}));
        EXPECT_EQ(ask(line, 0x04, 0x2d, {0}), (reply_t{0xcb, {}}));
    });
}

TEST_F(bmc, counts_no_more_than_255_records)
{
    std::ofstream file{folder / "sdr.bin", std::ios::binary};
    for (int id = 1; id <= 300; ++id)
        file << static_cast<char>(id % 256) << static_cast<char>(id / 256) << "\x51\x02\x03\x20\0\x31"s;
    file.close();
    plug_bmc(R"({"records": {"file": "sdr.bin"}})");
    run([] {
        line_t line;
        EXPECT_EQ(ask(line, 0x04, 0x20), (reply_t{0, {255, 1}}));
        EXPECT_EQ(ask(line, 0x04, 0x20, {1}), (reply_t{0, {255, 1}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0xff, 0xff, 0, 2}), (reply_t{0, {0xff, 0xff, 0x2c, 0x01}}));
    });
}

TEST_F(bmc, serves_a_FRU_of_65535_bytes)
{
    std::string image(65535, 'x');
    image.replace(65532, 3, "end");
    std::ofstream{folder / "fru.bin", std::ios::binary} << image;
    plug_bmc(R"({"fru": {"file": "fru.bin"}})");
    run([] {
        line_t line;
        EXPECT_EQ(ask(line, 0x0a, 0x10, {0}), (reply_t{0, {0xff, 0xff, 0}}));
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 0xfb, 0xff, 64}), (reply_t{0, {4, 'x', 'e', 'n', 'd'}}));
        EXPECT_EQ(ask(line, 0x0a, 0x11, {0, 0xff, 0xff, 1}), (reply_t{0xc9, {}}));
    });
}

TEST_F(bmc, a_value_is_the_nearest_raw_reading_by_the_standards_rules)
{
    struct row_t
    {
        const char* members;
        int raw;
    };
    const row_t rows[] = {
        {R"("value": 12.4)", 12},
        {R"("value": 12.6)", 13},
        {R"("value": -5)", 0},
        {R"("value": 1e9)", 255},
        {R"("value": -5, "format": "twos complement")", 0xfb},
        {R"("value": -5, "format": "ones complement")", 0xfa},
        {R"("value": 41, "m": 5, "b": -40, "b_exp": 1, "r_exp": -1)", 162},
        {R"("value": 10, "m": -1, "b": 30)", 20},
        {R"("value": 8, "linearisation": "exp2")", 3},
        {R"("value": 7.389, "linearisation": "e")", 2},
        {R"("value": 1000, "linearisation": "exp10")", 3},
        {R"("value": 0.25, "linearisation": "1/x")", 4},
        {R"("value": 49, "linearisation": "sqr")", 7},
        {R"("value": 27, "linearisation": "cube")", 3},
        {R"("value": 12, "linearisation": "sqrt")", 144},
        {R"("value": 5, "linearisation": "cube root")", 125},
        {R"("value": 2, "linearisation": "log10")", 100},
        {R"("value": 6, "linearisation": "log2")", 64},
        {R"("value": 3.0, "linearisation": "ln")", 20},
        {R"("value": 9, "linearisation": 112)", 9},
        {R"("value": 9, "linearisation": 128)", 9},
    };
    std::string sensors;
    for (const row_t& row : rows)
        sensors += (sensors.empty() ? "" : ", ") + R"({"name": "x", )"s + row.members + "}";
    plug_bmc(R"({"sensors": {"only": true, "list": [)" + sensors + "]}}");
    run([&] {
        line_t line;
        std::uint8_t number = 0;
        for (const row_t& row : rows) {
            const reply_t reply = ask(line, 0x04, 0x2d, {++number});
            ASSERT_THAT(reply.data, SizeIs(3)) << row.members;
            EXPECT_EQ(reply.data[0], row.raw) << row.members;
        }
    });
}

/// A sensor with limits, and no other one.
std::string sensor_with_limits(const std::string& members)
{
    return R"({"sensors": {"only": true, "list": [{"name": "x", )" + members + "}]}}";
}

TEST_F(bmc, serves_the_limits_of_a_sensor_in_its_record_and_by_themselves)
{
    plug_bmc(sensor_with_limits(R"("number": "0x21", "unit": "V", "value": 12.033, "m": 63, "r_exp": -3,
        "limits": {"lower_critical": 10.773, "lower_non_critical": 11.34, "upper_non_critical": 12.6,
                   "upper_critical": 13.23, "upper_non_recoverable": 14.49,
                   "positive_hysteresis": 0.126, "negative_hysteresis": 0.063})"));
    run([] {
        line_t line;
        const bytes_t record = ask(line, 0x04, 0x21, {0, 0, 1, 0, 0, 64}).data;
        ASSERT_THAT(record, SizeIs(66));
        // hysteresis and thresholds can be read; LNC, LC are compared; UNC, UC, UNR are; which there are, none settable
        EXPECT_EQ(part(record, 2 + 10, 2 + 20), (bytes_t{0x7f, 0x54, 2, 1, 0, 0x30, 0, 0x70, 0x3b, 0}));
        // UNR, UC, UNC, LNR, LC, LNC: 14.49, 13.23, 12.6, none, 10.773, 11.34 V in steps of 63 mV; hysteresis
        EXPECT_EQ(part(record, 2 + 36, 2 + 44), (bytes_t{230, 210, 200, 0, 171, 180, 2, 1}));
        EXPECT_EQ(ask(line, 0x04, 0x27, {0x21}), (reply_t{0, {0x3b, 180, 171, 0, 200, 210, 230}}));
        EXPECT_EQ(ask(line, 0x04, 0x25, {0x21, 0xff}), (reply_t{0, {2, 1}}));
        EXPECT_EQ(ask(line, 0x04, 0x2d, {0x21}), (reply_t{0, {191, 0xc0, 0xc0}}));
        EXPECT_EQ(ask(line, 0x04, 0x27, {1}), (reply_t{0xcb, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x25, {1, 0xff}), (reply_t{0xcb, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x27), (reply_t{0xc7, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x25, {0x21}), (reply_t{0xc7, {}}));
    });
}

TEST_F(bmc, a_sensor_without_limits_is_asked_for_them_in_vain)
{
    plug_bmc(R"({"sensors": {"only": true, "list": [{"name": "a"}, {"name": "b", "limits": {"upper_critical": 9}},
        {"name": "c", "limits": {"positive_hysteresis": 9}}, {"name": "d", "limits": {"lower_critical": null}}]}})");
    run([] {
        line_t line;
        const int unknown = 0xc1;
        // its place, capabilities, readable thresholds, code of thresholds, code of hysteresis
        const std::array<int, 5> rows[] = {
            {1, 0x40, 0x00, unknown, unknown},
            {2, 0x44, 0x10, 0, unknown},
            {3, 0x50, 0x00, unknown, 0},
            {4, 0x40, 0x00, unknown, unknown},
        };
        for (const auto& [place, capabilities, readable, of_thresholds, of_hysteresis] : rows) {
            const auto id = static_cast<std::uint8_t>(place);
            const bytes_t record = ask(line, 0x04, 0x21, {0, 0, id, 0, 0, 64}).data;
            ASSERT_THAT(record, SizeIs(66));
            EXPECT_EQ(record[2 + 11], capabilities) << place;
            EXPECT_EQ(record[2 + 18], readable) << place;
            EXPECT_EQ(ask(line, 0x04, 0x27, {id}).code, of_thresholds) << place;
            EXPECT_EQ(ask(line, 0x04, 0x25, {id, 0xff}).code, of_hysteresis) << place;
        }
        EXPECT_EQ(ask(line, 0x04, 0x25, {3, 0xff}).data, (bytes_t{9, 0}));
    });
}

TEST_F(bmc, compares_a_reading_with_its_limits_and_equal_counts)
{
    const std::string six = R"(, "limits": {"lower_non_recoverable": 20, "lower_critical": 30, "lower_non_critical": 40,
        "upper_non_critical": 60, "upper_critical": 70, "upper_non_recoverable": 80})";
    const std::string signed_limits = R"(, "limits": {"lower_critical": -10, "upper_critical": 5})";
    // Of 1/x in steps of 10^-6: raw 250 and 50.
    const std::string fan =
        R"(, "linearisation": "1/x", "r_exp": -6, "limits": {"lower_critical": 4000, "upper_non_critical": 20000})";
    // 30 - raw: 20 and 5.
    const std::string turned = R"(, "m": -1, "b": 30, "limits": {"lower_critical": 10, "upper_critical": 25})";
    struct row_t
    {
        std::string members;
        int raw, comparison;
        const char* why;
    };
    const row_t rows[] = {
        {R"("raw": 0)" + six, 0, 0xc7, "below all"},
        {R"("raw": 20)" + six, 20, 0xc7, "equal counts"},
        {R"("raw": 21)" + six, 21, 0xc3, ""},
        {R"("raw": 30)" + six, 30, 0xc3, ""},
        {R"("raw": 31)" + six, 31, 0xc1, ""},
        {R"("raw": 40)" + six, 40, 0xc1, ""},
        {R"("raw": 41)" + six, 41, 0xc0, ""},
        {R"("raw": 59)" + six, 59, 0xc0, ""},
        {R"("raw": 60)" + six, 60, 0xc8, ""},
        {R"("raw": 69)" + six, 69, 0xc8, ""},
        {R"("raw": 70)" + six, 70, 0xd8, ""},
        {R"("raw": 80)" + six, 80, 0xf8, ""},
        {R"("raw": 255)" + six, 255, 0xf8, "above all"},
        {R"("format": "twos complement", "value": -9)" + signed_limits, 0xf7, 0xc0, ""},
        {R"("format": "twos complement", "value": -10)" + signed_limits, 0xf6, 0xc2, ""},
        {R"("format": "twos complement", "value": -1)" + signed_limits, 0xff, 0xc0, "FFh is -1"},
        {R"("format": "twos complement", "value": 5)" + signed_limits, 5, 0xd0, ""},
        {R"("format": "ones complement", "value": -10)" + signed_limits, 0xf5, 0xc2, ""},
        {R"("format": "ones complement", "value": -1)" + signed_limits, 0xfe, 0xc0, "FEh is -1"},
        {R"("value": 5000)" + fan, 200, 0xc0, ""},
        {R"("value": 4000)" + fan, 250, 0xd0, "4000 is low, and its raw reading high"},
        {R"("value": 20000)" + fan, 50, 0xc1, ""},
        {R"("value": 11)" + turned, 19, 0xc0, ""},
        {R"("value": 10)" + turned, 20, 0xd0, ""},
        {R"("value": 25)" + turned, 5, 0xc2, ""},
        {R"("value": -0.25, "m": -1, "linearisation": "1/x", "limits": {"lower_critical": -0.5})", 4, 0xc0, ""},
        {R"("value": -0.25, "m": -1, "linearisation": "1/x", "limits": {"lower_critical": -0.125})", 4, 0xc2,
         "turned twice: -1/4 is below -1/8"},
    };
    std::string sensors;
    for (const row_t& row : rows)
        sensors += (sensors.empty() ? "" : ", ") + R"({"name": "x", )"s + row.members + "}";
    plug_bmc(R"({"sensors": {"only": true, "list": [)" + sensors + "]}}");
    run([&] {
        line_t line;
        std::uint8_t number = 0;
        for (const row_t& row : rows)
            EXPECT_EQ(
                ask(line, 0x04, 0x2d, {++number}),
                (reply_t{0, {static_cast<std::uint8_t>(row.raw), 0xc0, static_cast<std::uint8_t>(row.comparison)}}))
                << row.members << ' ' << row.why;
    });
}

TEST_F(bmc, turns_limits_where_a_value_falls_as_its_raw_reading_rises)
{
    plug_bmc(sensor_with_limits(R"("m": -1, "b": 30, "limits": {"lower_critical": 10, "upper_non_critical": 25,
        "upper_non_recoverable": 29, "positive_hysteresis": 2, "negative_hysteresis": 3})"));
    run([] {
        line_t line;
        const bytes_t record = ask(line, 0x04, 0x21, {0, 0, 1, 0, 0, 64}).data;
        ASSERT_THAT(record, SizeIs(66));
        EXPECT_EQ(part(record, 2 + 14, 2 + 19), (bytes_t{0, 0x50, 0, 0x20, 0x15}));
        EXPECT_EQ(part(record, 2 + 36, 2 + 44), (bytes_t{0, 20, 0, 1, 0, 5, 3, 2}));
        EXPECT_EQ(ask(line, 0x04, 0x27, {1}), (reply_t{0, {0x15, 5, 0, 1, 0, 20, 0}}));
        EXPECT_EQ(ask(line, 0x04, 0x25, {1, 0xff}), (reply_t{0, {3, 2}}));
    });
}

TEST_F(bmc, compares_with_the_limits_of_a_record_that_is_served_as_it_is)
{
    struct row_t
    {
        std::vector<std::pair<std::size_t, int>> bytes; ///< of the record, over those below
        int comparison, thresholds, hysteresis;         ///< third byte; completion codes
        const char* why;
    };
    const row_t rows[] = {
        {{}, 0xc1, 0, 0, "40 is at or below LNC 40, and above LC 30"},
        {{{11, 0x18}}, 0xc1, 0, 0, "settable thresholds"},
        {{{11, 0x10}}, 0xc0, 0xc1, 0, "no thresholds"},
        {{{11, 0x1c}}, 0xc0, 0xc1, 0, "fixed thresholds that cannot be read"},
        {{{11, 0x04}}, 0xc1, 0, 0xc1, "no hysteresis"},
        {{{11, 0x24}}, 0xc1, 0, 0, "settable hysteresis"},
        {{{11, 0x34}}, 0xc1, 0, 0xc1, "fixed hysteresis that cannot be read"},
        {{{13, 0x6f}}, 0xc0, 0xc1, 0xc1, "a discrete sensor"},
        {{{18, 0x3e}}, 0xc0, 0, 0, "LNC cannot be read"},
        {{{18, 0xc0}}, 0xc0, 0xc1, 0, "nothing can be read"},
        {{{15, 0x60}}, 0xc0, 0, 0, "LNC is not compared"},
        {{{41, 39}}, 0xc0, 0, 0, "above LNC"},
        {{{40, 40}}, 0xc3, 0, 0, "at LC as well"},
        {{{38, 40}}, 0xc9, 0, 0, "at UNC as well"},
        {{{38, 40}, {17, 0x60}}, 0xc1, 0, 0, "UNC is not compared"},
        {{{20, 0x80}, {38, 0xff}}, 0xc9, 0, 0, "UNC is -1 in two's complement"},
        {{{20, 0x40}, {38, 0xff}}, 0xc9, 0, 0, "UNC is -0 in one's complement"},
        {{{3, 0x02}, {31, 0xc1}}, 0xc0, 0xc1, 0xc1, "a compact record"},
    };
    std::string sensors;
    for (std::size_t at = 0; at < std::size(rows); ++at) {
        bytes_t record(49);
        const std::vector<std::pair<std::size_t, int>> same{{0, static_cast<int>(at + 1)},
                                                            {2, 0x51},
                                                            {3, 0x01},
                                                            {4, 44},
                                                            {7, static_cast<int>(at + 1)},
                                                            {11, 0x14},
                                                            {13, 0x01},
                                                            {15, 0x70},
                                                            {17, 0x70},
                                                            {18, 0x3f},
                                                            {24, 1},
                                                            {36, 80},
                                                            {37, 70},
                                                            {38, 60},
                                                            {39, 20},
                                                            {40, 30},
                                                            {41, 40},
                                                            {42, 7},
                                                            {43, 9},
                                                            {47, 0xc1},
                                                            {48, 'x'}};
        for (const auto& changes : {same, rows[at].bytes})
            for (const auto& [place, value] : changes)
                record.at(place) = static_cast<std::uint8_t>(value);
        std::string digits;
        for (const std::uint8_t byte : record)
            for (const unsigned digit : {byte / 16U, byte % 16U})
                digits += "0123456789abcdef"[digit];
        sensors += (at == 0 ? "" : ", ") + R"({"record": ")"s + digits + R"(", "raw": 40})";
    }
    plug_bmc(R"({"sensors": {"only": true, "list": [)" + sensors + "]}}");
    run([&] {
        line_t line;
        std::uint8_t number = 0;
        for (const row_t& row : rows) {
            EXPECT_EQ(ask(line, 0x04, 0x2d, {++number}),
                      (reply_t{0, {40, 0xc0, static_cast<std::uint8_t>(row.comparison)}}))
                << row.why;
            EXPECT_EQ(ask(line, 0x04, 0x27, {number}).code, row.thresholds) << row.why;
            EXPECT_EQ(ask(line, 0x04, 0x25, {number, 0xff}).code, row.hysteresis) << row.why;
        }
        EXPECT_EQ(ask(line, 0x04, 0x27, {1}).data, (bytes_t{0x3f, 40, 30, 20, 60, 70, 80}));
        EXPECT_EQ(ask(line, 0x04, 0x25, {1, 0xff}).data, (bytes_t{7, 9}));
    });
}

TEST_F(bmc, without_a_reading_compares_nothing)
{
    plug_bmc(sensor_with_limits(R"("available": false, "limits": {"lower_critical": 10})"));
    run([] {
        line_t line;
        EXPECT_EQ(ask(line, 0x04, 0x2d, {1}), (reply_t{0, {0x00, 0xe0, 0x00}}));
        EXPECT_EQ(ask(line, 0x04, 0x27, {1}).code, 0);
    });
}

TEST_F(bmc, without_sensors_has_no_record)
{
    plug_bmc(R"({"sensors": {"only": true, "list": []}})");
    run([] {
        line_t line;
        EXPECT_EQ(ask(line, 0x04, 0x20), (reply_t{0, {0, 1}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0, 0, 0, 64}), (reply_t{0xcb, {}}));
        EXPECT_EQ(ask(line, 0x04, 0x21, {0, 0, 0xff, 0xff, 0, 64}), (reply_t{0xcb, {}}));
    });
}

} // namespace

} // namespace ivra::platform_tests
