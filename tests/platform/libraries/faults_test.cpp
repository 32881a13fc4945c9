#include "story.h"

#include "platform/rack/bad_racks.h"
#include "rack/calls.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>

#include <sys/stat.h>
#include <sys/wait.h>

namespace ivra::platform_tests {

namespace {

class faults : public host
{
protected:
    /// Expects that the plan is refused: with this text in one line of the log, and by failing every call.
    void expect_refused(const std::string& json, const std::string& text)
    {
        plan(json);
        run([&] {
            const log_t log;
            EXPECT_FAILS(0U, EINVAL, ivra_hw_count_accelerators());
            EXPECT_FAILS(nullptr, EINVAL, ivra_hw_filter_create());
            ivra_mac_address address{};
            EXPECT_FAILS(-1, EINVAL, ivra_mac_address_from_int(0, &address));
            EXPECT_THAT(log.lines(), ::testing::ElementsAre(
                                         "0 ivra_virtual_faults: " + (folder / "faults.json").string() + ": " + text))
                << json;
        });
    }
};

TEST_F(faults, a_call_fails_with_the_errno_of_the_plan_and_does_nothing)
{
    plan(
        R"([{"call": "ivra_hw_write", "errno": "EIO"}, {"call": "ivra_hw_accelerator_get_properties", "errno": "EBADF"}])");
    run([] {
        const opened board;
        const ivra_hw_register_description word{0x20, 0, 32, "word"};
        EXPECT_FAILS(-1, EIO, ivra_hw_write(board.core(475), &word, 1));
        EXPECT_EQ(read_word(board.core(475), 0x20), 0U);
        EXPECT_FAILS(nullptr, EBADF, ivra_hw_accelerator_get_properties(board.descriptor));
    });
}

TEST_F(faults, a_call_can_fail_without_saying_why)
{
    plan(R"([{"call": "ivra_hw_filter_create", "errno": "0"}])");
    run([] { EXPECT_FAILS(nullptr, 0, ivra_hw_filter_create()); });
}

TEST_F(faults, a_count_that_cannot_be_had_is_0)
{
    plan(R"([{"call": "ivra_hw_count_accelerators", "errno": "ENOMEM"}])");
    run([] { EXPECT_FAILS(0U, ENOMEM, ivra_hw_count_accelerators()); });
}

TEST_F(faults, happen_to_the_nth_call_or_from_the_nth_on_or_always)
{
    plan(R"([{"call": "ivra_hw_filter_create", "nth": 2, "errno": "EIO"},
             {"call": "ivra_hw_filter_create", "from": 4, "errno": "ENOMEM"},
             {"call": "ivra_hw_shared_mutex_create", "errno": "EACCES"}])");
    run([] {
        std::vector<int> errors;
        for (int i = 0; i < 6; ++i) {
            errno = 0;
            ivra_hw_filter_destroy(ivra_hw_filter_create());
            errors.push_back(errno);
        }
        EXPECT_THAT(errors, ::testing::ElementsAre(0, EIO, 0, ENOMEM, ENOMEM, ENOMEM));
        for (int i = 0; i < 3; ++i)
            EXPECT_FAILS(nullptr, EACCES, ivra_hw_shared_mutex_create("m"));
    });
}

TEST_F(faults, happen_to_one_accelerator_only_by_name_or_by_uid)
{
    plug({board_text, R"({"name": "second", "model": "xilinx_u50", "uid": "0000:02:00.0"})",
          R"({"name": "third", "model": "xilinx_u50", "uid": "0000:03:00.0"})"});
    plan(R"([{"call": "ivra_hw_accelerator_get", "accelerator": "second", "errno": "EIO"},
             {"call": "ivra_hw_accelerator_get", "accelerator": "0000:03:00.0", "nth": 1, "errno": "ENODEV"}])");
    run([] {
        const descriptors_t all;
        for (int round = 0; round < 2; ++round) {
            ivra_hw_accelerator* first = ivra_hw_accelerator_get(all[0]);
            EXPECT_NE(first, nullptr);
            ivra_hw_accelerator_put(first);
            EXPECT_FAILS(nullptr, EIO, ivra_hw_accelerator_get(all[1]));
        }
        EXPECT_FAILS(nullptr, ENODEV, ivra_hw_accelerator_get(all[2])) << "its first call, though not the first of all";
        ivra_hw_accelerator* third = ivra_hw_accelerator_get(all[2]);
        EXPECT_NE(third, nullptr);
        ivra_hw_accelerator_put(third);
    });
}

TEST_F(faults, of_several_rules_the_first_whose_turn_it_is_counts)
{
    plan(
        R"([{"call": "ivra_hw_filter_create", "nth": 2, "errno": "EIO"}, {"call": "ivra_hw_filter_create", "errno": "EPERM"}])");
    run([] {
        EXPECT_FAILS(nullptr, EPERM, ivra_hw_filter_create());
        EXPECT_FAILS(nullptr, EIO, ivra_hw_filter_create());
        EXPECT_FAILS(nullptr, EPERM, ivra_hw_filter_create());
    });
}

TEST_F(faults, short_stores_fewer_handles_and_says_so)
{
    plug({board_text, R"({"model": "xilinx_u50", "uid": "b"})", R"({"model": "xilinx_u50", "uid": "c"})"});
    plan(R"([{"call": "ivra_hw_enumerate_all_accelerators", "short": 1}])");
    run([] {
        EXPECT_EQ(ivra_hw_count_accelerators(), 3U);
        std::array<const ivra_hw_accelerator_descriptor*, 3> handles{};
        EXPECT_EQ(ivra_hw_enumerate_all_accelerators(handles.data(), 3), 1);
        EXPECT_EQ(handles[1], nullptr);
        ivra_hw_accelerator_put_descriptor(handles[0]);
    });
}

TEST_F(faults, short_moves_fewer_bytes_and_with_an_errno_fails_after_them)
{
    plan(R"([{"call": "ivra_flash_write_section", "nth": 1, "short": 2},
             {"call": "ivra_flash_write_section", "nth": 2, "short": 1, "errno": "EIO"}])");
    run([this] {
        const opened board;
        ivra_flash* flash = ivra_flash_create(board.root);
        const char* section = ivra_flash_get_section_pgm(flash);
        EXPECT_EQ(ivra_flash_write_section(flash, section, 0, "abcd", 4), 0);
        EXPECT_FAILS(-1, EIO, ivra_flash_write_section(flash, section, 8, "efgh", 4));
        ivra_flash_destroy(flash);
        for (const auto& entry : std::filesystem::recursive_directory_iterator{state}) {
            if (entry.path().filename() != "flash")
                continue;
            std::string inverted = read(entry.path()).substr(0, 12);
            for (char& c : inverted)
                c = static_cast<char>(~c);
            EXPECT_EQ(inverted, "ab\xff\xff\xff\xff\xff\xff"
                                "e\xff\xff\xff");
        }
    });
}

TEST_F(faults, delay_makes_a_call_slow)
{
    plan(
        R"([{"call": "ivra_hw_count_accelerators", "delay": "60ms"}, {"call": "ivra_hw_filter_create", "delay": "0.05 s"}])");
    run([] {
        const auto start_time = std::chrono::steady_clock::now();
        EXPECT_EQ(ivra_hw_count_accelerators(), 1U) << "slow, but right";
        ivra_hw_filter_destroy(ivra_hw_filter_create());
        EXPECT_GE(std::chrono::steady_clock::now() - start_time, std::chrono::milliseconds{110});
    });
}

TEST_F(faults, garble_flips_bits_of_what_is_stored_from_its_first_byte_on)
{
    plan(R"([{"call": "ivra_hw_read", "garble": "ff0001"}, {"call": "ivra_hw_top_get_board_name", "garble": "20"},
             {"call": "ivra_hw_top_get_fpga_serial_id", "garble": "0000000001"},
             {"call": "ivra_hw_top_get_mac_addresses", "garble": "000000000000FF0102030405060708090a0b0c0d"},
             {"call": "ivra_parse_mac_address", "garble": "0f"}])");
    run([] {
        const opened board;
        EXPECT_EQ(read_word(board.core(475), 0x10), 0x89aacd10U) << "89abcdef, its low byte first";
        ivra_hw_top* top = ivra_hw_top_create(board.root);
        char name[64];
        EXPECT_EQ(ivra_hw_top_get_board_name(top, name, sizeof name), 11);
        EXPECT_STREQ(name, "Xilinx_u200");
        ivra_hw_top_fpga_serial_id id{};
        EXPECT_EQ(ivra_hw_top_get_fpga_serial_id(top, &id), 0);
        EXPECT_THAT(id.words, ::testing::ElementsAre(0x1a104285U, 0x01285c0eU, 0x40020000U));
        std::array<ivra_mac_address, 3> addresses{};
        EXPECT_EQ(ivra_hw_top_get_mac_addresses(top, addresses.data(), 2), 3);
        EXPECT_THAT(addresses[1].bytes, ::testing::ElementsAre(0xfd, 0x01, 0x02, 0x03, 0x14, 0xfa));
        EXPECT_THAT(addresses[2].bytes, ::testing::Each(0)) << "nothing beyond what was stored";
        ivra_mac_address parsed{};
        EXPECT_EQ(ivra_parse_mac_address("00:11:22:33:44:55", &parsed), 0);
        EXPECT_EQ(parsed.bytes[0], 0x0f);
        ivra_hw_top_destroy(top);
    });
}

TEST_F(faults, kill_before_ends_the_process_before_the_call_does_anything)
{
    plan(R"([{"call": "ivra_hw_write", "kill": "before"}])");
    const end_t end = end_of(start([] {
        const opened board;
        write_word(board.core(475), 0x20, 1);
    }));
    EXPECT_EQ(end.signal, SIGKILL);
    ::unsetenv("IVRA_VIRTUAL_FAULTS");
    run([] {
        const opened board;
        EXPECT_EQ(read_word(board.core(475), 0x20), 0U);
    });
}

TEST_F(faults, kill_after_ends_the_process_when_the_call_is_done)
{
    plan(R"([{"call": "ivra_hw_write", "kill": "after"}])");
    const end_t end = end_of(start([] {
        const opened board;
        write_word(board.core(475), 0x20, 1);
    }));
    EXPECT_EQ(end.signal, SIGKILL);
    ::unsetenv("IVRA_VIRTUAL_FAULTS");
    run([] {
        const opened board;
        EXPECT_EQ(read_word(board.core(475), 0x20), 1U);
    });
}

TEST_F(faults, signal_comes_before_the_call_does_its_work_or_after_it)
{
    struct row_t
    {
        const char* when;
        std::uint64_t value; ///< of the register after a signal that ended the process
    };
    constexpr row_t rows[] = {{"", 0}, {R"(, "when": "before")", 0}, {R"(, "when": "after")", 7}};
    for (const row_t& row : rows) {
        plan(std::string{R"([{"call": "ivra_hw_write", "nth": 2, "signal": "SIGINT")"} + row.when + "}]");
        const end_t end = end_of(start([] {
            std::signal(SIGINT, SIG_DFL);
            const opened board;
            write_word(board.core(475), 0x20, 0);
            write_word(board.core(475), 0x20, 7);
        }));
        EXPECT_EQ(end.signal, SIGINT);
        ::unsetenv("IVRA_VIRTUAL_FAULTS");
        run([&] { EXPECT_EQ(read_word(opened{}.core(475), 0x20), row.value) << row.when; });
    }
}

volatile std::sig_atomic_t came = 0;

TEST_F(faults, signal_that_the_process_takes_or_holds_back_does_not_disturb_the_call)
{
    plan(R"([{"call": "ivra_hw_read", "nth": 1, "signal": "SIGUSR1"},
             {"call": "ivra_hw_read", "nth": 2, "signal": "SIGUSR1", "when": "after", "errno": "EIO"}])");
    run([] {
        std::signal(SIGUSR1, [](int signal) {
            came = signal;
            errno = EDOM;
        });
        const opened board;
        const ivra_hw_register_description word{0x20, 0, 32, "word"};
        std::uint64_t value = 0;
        errno = 0;
        EXPECT_EQ(ivra_hw_read(board.core(475), &word, &value), 0);
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(came, SIGUSR1);

        came = 0;
        sigset_t held;
        ::sigemptyset(&held);
        ::sigaddset(&held, SIGUSR1);
        ::sigprocmask(SIG_BLOCK, &held, nullptr);
        EXPECT_FAILS(-1, EIO, ivra_hw_read(board.core(475), &word, &value));
        EXPECT_EQ(came, 0);
        ::sigprocmask(SIG_UNBLOCK, &held, nullptr);
        EXPECT_EQ(came, SIGUSR1);
    });
}

TEST_F(faults, stop_stops_the_process_for_a_time)
{
    plan(R"([{"call": "ivra_hw_write", "stop": "50 ms"}])");
    const ::pid_t process = start([] { write_word(opened{}.core(475), 0x20, 7); });
    int status = 0;
    ASSERT_EQ(::waitpid(process, &status, WUNTRACED), process);
    ASSERT_TRUE(WIFSTOPPED(status));
    EXPECT_EQ(WSTOPSIG(status), SIGSTOP);
    EXPECT_EQ(end_of(process).status, 0) << "it went on";
    run([] { EXPECT_EQ(read_word(opened{}.core(475), 0x20), 7U); });
}

TEST_F(faults, stop_ends_also_when_a_terminal_has_sent_a_signal_meanwhile)
{
    plan(R"([{"call": "ivra_hw_write", "stop": "300 ms"}])");
    const ::pid_t process = start([] {
        ::setpgid(0, 0);
        write_word(opened{}.core(475), 0x20, 7);
    });
    int status = 0;
    ASSERT_EQ(::waitpid(process, &status, WUNTRACED), process);
    ASSERT_TRUE(WIFSTOPPED(status));
    ::kill(-process, SIGTERM);
    EXPECT_EQ(end_of(process).signal, SIGTERM);
}

TEST_F(faults, log_is_what_the_library_says_of_a_call_that_does_its_work)
{
    plan(R"([{"call": "ivra_hw_read", "nth": 1, "log": "odd %s\n"}])");
    run([] {
        const opened board;
        const log_t log;
        write_word(board.core(475), 0x20, 7);
        EXPECT_EQ(read_word(board.core(475), 0x20), 7U);
        EXPECT_THAT(log.lines(), ::testing::ElementsAre("1 ivra_hw_read: odd %s\n"));
    });
}

TEST_F(faults, stop_takes_its_time_from_the_clock_of_a_test)
{
    plan(R"([{"call": "ivra_hw_read", "stop": "1 s"}])");
    run([this] {
        ::setenv("IVRA_VIRTUAL_CLOCK", (folder / "clock").c_str(), 1);
        const opened board;
        const auto before = std::chrono::steady_clock::now();
        read_word(board.core(475), 0x20);
        EXPECT_EQ(std::chrono::steady_clock::now() - before, std::chrono::seconds{1});
    });
}

TEST_F(faults, a_call_that_cannot_fail_can_still_be_slow_or_deadly)
{
    plan(R"([{"call": "ivra_hw_filter_destroy", "kill": "before"}])");
    EXPECT_EQ(end_of(start([] { ivra_hw_filter_destroy(nullptr); })).signal, SIGKILL);
}

TEST_F(faults, count_lies_about_a_count)
{
    plan(
        R"([{"call": "ivra_hw_count_accelerators", "count": 3}, {"call": "ivra_hw_top_get_mac_addresses", "nth": 1, "count": 0},
             {"call": "ivra_hw_top_get_mac_addresses", "nth": 2, "count": 1000}])");
    run([] {
        EXPECT_EQ(ivra_hw_count_accelerators(), 3U);
        std::array<const ivra_hw_accelerator_descriptor*, 3> handles{};
        EXPECT_EQ(ivra_hw_enumerate_all_accelerators(handles.data(), 3), 1);
        EXPECT_EQ(handles[2], nullptr) << "the null entry that a client has to cope with";
        ivra_hw_accelerator_put_descriptor(handles[0]);
        const opened board;
        ivra_hw_top* top = ivra_hw_top_create(board.root);
        EXPECT_EQ(ivra_hw_top_get_mac_addresses(top, nullptr, 0), 0);
        EXPECT_EQ(ivra_hw_top_get_mac_addresses(top, nullptr, 0), 1000);
        ivra_hw_top_destroy(top);
    });
}

TEST_F(faults, text_takes_the_place_of_the_true_text)
{
    plan(
        R"([{"call": "ivra_hw_top_get_board_name", "text": "Xilinx_U50"}, {"call": "ivra_flash_get_section_name", "text": "?"},
             {"call": "ivra_print_mac_address", "text": "much longer than any MAC address"}])");
    run([] {
        const opened board;
        ivra_hw_top* top = ivra_hw_top_create(board.root);
        char text[18];
        EXPECT_EQ(ivra_hw_top_get_board_name(top, text, sizeof text), 10);
        EXPECT_STREQ(text, "Xilinx_U50");
        EXPECT_FAILS(-1, ERANGE, ivra_hw_top_get_board_name(top, text, 10));
        ivra_flash* flash = ivra_flash_create(board.root);
        EXPECT_STREQ(ivra_flash_get_section_name(flash, ivra_flash_get_section_usr(flash)), "?");
        const ivra_mac_address address{};
        EXPECT_EQ(ivra_print_mac_address(&address, text, sizeof text), 32);
        EXPECT_STREQ(text, "much longer than ");
        ivra_flash_destroy(flash);
        ivra_hw_top_destroy(top);
    });
}

TEST_F(faults, every_call_that_can_fail_takes_an_errno_and_no_other_does)
{
    for (const auto& row : virtual_platform::calls) {
        const std::string rule = R"([{"call": ")" + std::string{row.name} + R"(", "errno": "EIO"}])";
        if ((row.traits & virtual_platform::fails) == 0) {
            expect_refused(rule, "/0/errno: expected no such member for " + std::string{row.name});
            continue;
        }
        plan(rule);
        run([&] {
            const log_t log;
            EXPECT_EQ(ivra_hw_count_accelerators(), row.name == "ivra_hw_count_accelerators" ? 0U : 1U);
            EXPECT_THAT(log.lines(), ::testing::IsEmpty());
        });
    }
}

TEST_F(faults, a_plan_that_is_malformed_is_refused_loudly_with_the_place_of_the_first_mistake)
{
    for (const tests::bad_plan_t& row : tests::bad_plans())
        expect_refused(row.text, row.error);
    expect_refused(R"([{"call": "ivra_hw_read", "accelerator": "nobody", "errno": "EIO"}])",
                   "/0/accelerator: expected the name or uid of an accelerator of " + (folder / "rack.json").string());
}

TEST_F(faults, a_plan_that_cannot_be_read_is_refused_loudly)
{
    plan("[]");
    std::filesystem::remove(folder / "faults.json");
    run([this] {
        const log_t log;
        EXPECT_FAILS(0U, EINVAL, ivra_hw_count_accelerators());
        EXPECT_THAT(log.lines(), ::testing::ElementsAre("0 ivra_virtual_faults: " + (folder / "faults.json").string() +
                                                        ": cannot be read: No such file or directory"));
    });
    ASSERT_EQ(::mkfifo((folder / "faults.json").c_str(), 0600), 0);
    run([this] {
        const log_t log;
        EXPECT_FAILS(0U, EINVAL, ivra_hw_count_accelerators()) << "without waiting for anybody";
        EXPECT_THAT(log.lines(), ::testing::ElementsAre("0 ivra_virtual_faults: " + (folder / "faults.json").string() +
                                                        ": expected a regular file"));
    });
}

TEST_F(faults, handles_can_be_released_under_a_plan_that_is_refused)
{
    plan("nonsense");
    run([] {
        const log_t log;
        errno = 0;
        ivra_hw_filter_destroy(nullptr);
        ivra_hw_accelerator_put(nullptr);
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(log.lines().size(), 1U);
    });
}

TEST_F(faults, errno_names_include_the_second_names_of_some)
{
    const struct
    {
        std::string name;
        int error;
    } rows[] = {
        {"EPERM", EPERM},     {"ENXIO", ENXIO},           {"ETIMEDOUT", ETIMEDOUT}, {"EWOULDBLOCK", EWOULDBLOCK},
        {"ENOTSUP", ENOTSUP}, {"EOPNOTSUPP", EOPNOTSUPP}, {"EHWPOISON", EHWPOISON}, {"EDEADLOCK", EDEADLOCK}};
    for (const auto& row : rows) {
        plan(R"([{"call": "ivra_hw_filter_create", "errno": ")" + row.name + R"("}])");
        run([&] { EXPECT_FAILS(nullptr, row.error, ivra_hw_filter_create()); });
    }
}

} // namespace

} // namespace ivra::platform_tests
