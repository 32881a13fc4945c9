#include "output/output.h"
#include "support/process.h"

#include <ivra/log.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

ivra_log_handler installed_handler = nullptr;

} // namespace

/// The library's, which also lets this program know.
void ivra_log_set_handler(ivra_log_handler handler)
{
    installed_handler = handler;
    const auto next = reinterpret_cast<decltype(&ivra_log_set_handler)>(::dlsym(RTLD_NEXT, "ivra_log_set_handler"));
    next(handler);
}

namespace ivra::bsp {
namespace {

using tests::run_t;
using tests::stream_t;
using tests::streams_t;

run_t run(tests::function_ref<void(output&)> body, streams_t streams = {})
{
    return tests::run_in_child(
        [&] {
            ::unsetenv("COLORTERM");
            ::setenv("TERM", "xterm", 1);
            body(output::get());
            output::get().exit();
        },
        streams);
}

constexpr streams_t on_terminal{stream_t::terminal, stream_t::terminal};

TEST(output_text, messages_go_to_standard_output_and_errors_to_standard_error)
{
    const run_t r = run([](output& out) {
        out.log_part("Retrieving... ");
        out.log("done", color::green);
        out.error("went wrong");
    });
    EXPECT_EQ(r.out, "Retrieving... done\n");
    EXPECT_EQ(r.err, "went wrong\n");
    EXPECT_EQ(r.status, 0);
}

/// What each write to standard output had, in their order.
std::vector<std::string> writes(tests::function_ref<void(output&)> body)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_DIRECT | O_CLOEXEC), 0); // each read gets what one write gave
    run([&](output& out) {
        ::dup2(ends[1], STDOUT_FILENO);
        body(out);
    });
    ::close(ends[1]);
    std::vector<std::string> all;
    std::array<char, 4096> buffer{};
    for (ssize_t size = 0; (size = ::read(ends[0], buffer.data(), buffer.size())) > 0;)
        all.emplace_back(buffer.data(), static_cast<std::size_t>(size));
    ::close(ends[0]);
    return all;
}

TEST(output_text, each_line_and_each_part_of_one_is_written_at_once)
{
    const auto written = writes([](output& out) {
        out.log("Chosen");
        out.log_part("Retrieving... ");
        out.log("done", color::green);
        out.print_line("Report", color::bold, 0);
        section report{"Report", std::nullopt, 0};
        report.add_stat({"a", "1", color::normal}).add_stat({"b", "2", color::normal});
        report.add_list("list").add_section("Item", "key", 1).add_stat({"c", "3", color::normal});
        report.entries.emplace_back(section::array{"k", "S", {"V"}, {{"r", {"1"}, {}}}, 0});
        out.print_out_content(report.entries, report.level);
        out.exit(true, "over");
    });
    EXPECT_EQ(written, (std::vector<std::string>{"Chosen\n", "Retrieving... ", "done\n", "Report\n", "\ta: 1\n",
                                                 "\tb: 2\n", "\tItem\n", "\t\tc: 3\n", "┌───┬───┐\n", "│ S │ V │\n",
                                                 "├───┼───┤\n", "│ r │ 1 │\n", "└───┴───┘\n", "over\n"}));
}

TEST(output_text, on_a_terminal_everything_is_coloured)
{
    const run_t r = run(
        [](output& out) {
            out.log_part("Retrieving... ");
            out.log("done", color::green);
            out.print_line("Title", color::bold, 0);
            out.error("went wrong");
        },
        on_terminal);
    EXPECT_EQ(r.out, "\033[0mRetrieving... \033[0m\033[32mdone\033[0m\n\033[1mTitle\033[0m\n");
    EXPECT_EQ(r.err, "\033[31mwent wrong\033[0m\n");
}

TEST(output_text, the_beginning_of_a_line_is_plain_whatever_colour_it_is_given)
{
    const run_t r = run(
        [](output& out) {
            out.log_part("Retrieving... ", color::red);
            out.log("done", color::green);
        },
        on_terminal);
    EXPECT_EQ(r.out, "\033[0mRetrieving... \033[0m\033[32mdone\033[0m\n");
}

TEST(output_text, a_reset_chooses_the_palette_of_the_terminal_as_it_is_then)
{
    const run_t r = run(
        [](output& out) {
            out.log("before", color::green);
            ::setenv("TERM", "xterm-256color", 1);
            out.log("until then", color::green);
            out.reset();
            out.log("after", color::green);
            out.error("wrong");
        },
        on_terminal);
    EXPECT_EQ(r.out, "\033[32mbefore\033[0m\n\033[32muntil then\033[0m\n\033[38;5;36mafter\033[0m\n");
    EXPECT_EQ(r.err, "\033[38;5;175mwrong\033[0m\n");
}

TEST(output_text, each_stream_is_coloured_by_what_it_is)
{
    const auto body = [](output& out) {
        out.log("said", color::green);
        out.error("wrong");
    };
    const run_t out_only = run(body, {stream_t::terminal, stream_t::file});
    EXPECT_EQ(out_only.out, "\033[32msaid\033[0m\n");
    EXPECT_EQ(out_only.err, "wrong\n");
    const run_t err_only = run(body, {stream_t::file, stream_t::terminal});
    EXPECT_EQ(err_only.out, "said\n");
    EXPECT_EQ(err_only.err, "\033[31mwrong\033[0m\n");
}

TEST(output_text, colour_mode_never_writes_no_escape_even_for_errors_on_a_terminal)
{
    const run_t r = run(
        [](output& out) {
            out.set_color_mode(color_mode_t::never);
            out.log("said", color::green);
            out.error("wrong");
        },
        on_terminal);
    EXPECT_EQ(r.out, "said\n");
    EXPECT_EQ(r.err, "wrong\n");
}

TEST(output_text, colour_mode_always_colours_files_too)
{
    const run_t r = run([](output& out) {
        out.set_color_mode(color_mode_t::always);
        out.log("said", color::green);
        out.error("wrong");
    });
    EXPECT_EQ(r.out, "\033[32msaid\033[0m\n");
    EXPECT_EQ(r.err, "\033[31mwrong\033[0m\n");
}

TEST(output_text, control_characters_of_messages_are_question_marks)
{
    const run_t r = run([](output& out) {
        out.log_part("a\033[2J");
        out.log("b\nc");
        out.error("d\u009be");
    });
    EXPECT_EQ(r.out, "a?[2Jb?c\n");
    EXPECT_EQ(r.err, "d?e\n");
}

TEST(output_text, a_successful_final_message_is_a_line_and_a_failing_one_an_error)
{
    const run_t good = run([](output& out) { out.exit(true, "all well"); });
    EXPECT_EQ(good.out, "all well\n");
    EXPECT_EQ(good.err, "");
    EXPECT_EQ(good.status, 0);
    const run_t bad = run([](output& out) { out.exit(false, "no luck"); });
    EXPECT_EQ(bad.out, "");
    EXPECT_EQ(bad.err, "no luck\n");
    EXPECT_EQ(bad.status, 1);
    const run_t silent = run([](output& out) { out.exit(false); });
    EXPECT_EQ(silent.out + silent.err, "");
    EXPECT_EQ(silent.status, 1);
}

TEST(output_json, standard_output_gets_one_document_and_progress_goes_to_standard_error)
{
    const run_t r = run([](output& out) {
        out.set_format(output_format_t::json);
        out.log_part("Retrieving... ");
        out.log("done", color::green);
        out.print_json_section(section{"Sensors", std::nullopt, 0});
        out.error("went wrong");
    });
    EXPECT_EQ(r.out, R"({"data":{"Sensors":{}},"status":{"success":true},"log":[)"
                     R"({"type":"info","message":"Retrieving... done"},{"type":"error","message":"went wrong"}]})"
                     "\n");
    EXPECT_EQ(r.err, "Retrieving... done\nwent wrong\n");
    EXPECT_EQ(r.status, 0);
}

TEST(output_json, progress_is_coloured_only_when_standard_error_is_a_terminal_or_colour_is_always)
{
    const auto body = [](output& out) {
        out.set_format(output_format_t::json);
        out.log("done", color::green);
    };
    EXPECT_EQ(run(body, {stream_t::terminal, stream_t::file}).err, "done\n");
    EXPECT_EQ(run(body, {stream_t::file, stream_t::terminal}).err, "\033[32mdone\033[0m\n");
    const run_t always = run([&](output& out) {
        out.set_color_mode(color_mode_t::always);
        body(out);
    });
    EXPECT_EQ(always.err, "\033[32mdone\033[0m\n");
    EXPECT_EQ(always.out.find('\033'), std::string::npos);
}

TEST(output_json, messages_recorded_before_the_format_was_known_are_in_the_log)
{
    const run_t r = run([](output& out) {
        out.log("early");
        out.set_format(output_format_t::json);
    });
    EXPECT_EQ(r.out, "early\n"
                     R"({"data":{},"status":{"success":true},"log":[{"type":"info","message":"early"}]})"
                     "\n");
}

TEST(output_json, text_that_no_log_completed_is_a_last_info_entry)
{
    const run_t r = run([](output& out) {
        out.set_format(output_format_t::json);
        out.log_part("Retrieving... ");
        out.exit(false, "broken");
    });
    EXPECT_EQ(r.out, R"({"data":{},"status":{"success":false,"message":"broken"},"log":[)"
                     R"({"type":"error","message":"broken"},{"type":"info","message":"Retrieving... "}]})"
                     "\n");
    EXPECT_EQ(r.status, 1);
}

TEST(output_json, a_run_that_fails_before_any_report_has_empty_data)
{
    const run_t r = run([](output& out) {
        out.set_format(output_format_t::json);
        out.exit(false, "no luck");
    });
    EXPECT_EQ(r.out, R"({"data":{},"status":{"success":false,"message":"no luck"},)"
                     R"("log":[{"type":"error","message":"no luck"}]})"
                     "\n");
    EXPECT_EQ(r.err, "no luck\n");
    EXPECT_EQ(r.status, 1);
}

TEST(platform_log, level_0_is_an_error_and_every_other_level_a_line)
{
    const run_t r = run([](output&) {
        ivra_log_log(IVRA_LOG_ERROR, "file", 1, "fail", "%s %d", "text", 5);
        ivra_log_log(IVRA_LOG_WARNING, "file", 2, "warn", "%s", std::string(5000, 'x').c_str());
        ivra_log_log(IVRA_LOG_INFO, "file", 3, "info", "plain");
        ivra_log_log(IVRA_LOG_DEBUG, "file", 4, "debug", "100%%");
    });
    EXPECT_EQ(r.err, "fail: text 5\n");
    EXPECT_EQ(r.out, "warn: " + std::string(5000, 'x') + "\ninfo: plain\ndebug: 100%\n");
}

TEST(platform_log, its_messages_are_recorded)
{
    const run_t r = run([](output& out) {
        out.set_format(output_format_t::json);
        ivra_log_log(IVRA_LOG_ERROR, "file", 1, "fail", "text");
        ivra_log_log(IVRA_LOG_INFO, "file", 1, "info", "text");
    });
    EXPECT_EQ(r.out, R"({"data":{},"status":{"success":true},"log":[{"type":"error","message":"fail: text"},)"
                     R"({"type":"info","message":"info: text"}]})"
                     "\n");
}

TEST(platform_log, a_message_that_cannot_be_formatted_has_an_empty_text)
{
    const run_t r = run([](output&) {
        const wchar_t not_encodable[] = {static_cast<wchar_t>(0x110000), 0};
        ivra_log_log(IVRA_LOG_INFO, "file", 1, "get_i2c", "%ls", not_encodable);
    });
    EXPECT_EQ(r.out, "get_i2c: \n");
}

/// What a platform library would do that calls the handler itself.
void say(const char* function, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    installed_handler(IVRA_LOG_INFO, "file", 1, function, format, args);
    va_end(args);
}

TEST(platform_log, a_message_may_come_without_function_or_format)
{
    const run_t r = run([](output& out) {
        say(nullptr, "%s", "nobody's");
        say("somebody", nullptr);
        say(nullptr, nullptr);
        out.log("said");
    });
    EXPECT_EQ(r.out, "nobody's\nsomebody: \n\nsaid\n");
    EXPECT_EQ(r.status, 0);
}

TEST(platform_log, line_breaks_at_the_end_of_a_message_are_dropped)
{
    const run_t r = run([](output& out) {
        out.set_format(output_format_t::json);
        say("f", "retrying\n");
        say("f", "%s", "retrying\r\n\n");
        say("f", "\n");
        say("f", "one\ntwo ");
    });
    EXPECT_EQ(r.err, "f: retrying\nf: retrying\nf: \nf: one?two \n");
    EXPECT_EQ(r.out, R"({"data":{},"status":{"success":true},"log":[{"type":"info","message":"f: retrying"},)"
                     R"({"type":"info","message":"f: retrying"},{"type":"info","message":"f: "},)"
                     R"({"type":"info","message":"f: one\ntwo "}]})"
                     "\n");
}

TEST(platform_log, goes_to_the_library_again_when_the_process_ends)
{
    const auto end_with_a_message = [](tests::function_ref<void()> end) {
        return tests::run_in_child([&] {
            // Registered before the output exists, and so called after it is gone.
            std::atexit([] {
                if (installed_handler != nullptr)
                    std::_Exit(99);
                ivra_log_log(IVRA_LOG_ERROR, "file", 1, "close", "%s", "late");
            });
            output::get().log("said");
            end();
        });
    };
    const run_t ended = end_with_a_message([] { output::get().exit(false, "no luck"); });
    EXPECT_EQ(ended.out, "said\n");
    EXPECT_EQ(ended.err, "no luck\nclose: late\n");
    EXPECT_EQ(ended.status, 1);
    const run_t without_memory = end_with_a_message([] { output::exit_without_memory(); });
    EXPECT_EQ(without_memory.out, "said\n");
    EXPECT_EQ(without_memory.err, "Out of memory\nclose: late\n");
    EXPECT_EQ(without_memory.status, 1);
}

TEST(standard_output, that_cannot_be_written_makes_the_run_fail)
{
    const auto body = [](output& out) {
        out.log("said");
        out.print_line("more", color::normal, 0);
    };
    const run_t full = run(body, {stream_t::full_disk, stream_t::file});
    EXPECT_EQ(full.err, "Cannot write to standard output: No space left on device\n");
    EXPECT_EQ(full.status, 1);
    const run_t json =
        run([](output& out) { out.set_format(output_format_t::json); }, {stream_t::full_disk, stream_t::file});
    EXPECT_EQ(json.err, "Cannot write to standard output: No space left on device\n");
    EXPECT_EQ(json.status, 1);
    const run_t closed = run(body, {stream_t::closed, stream_t::file});
    EXPECT_EQ(closed.err, "Cannot write to standard output: Bad file descriptor\n");
    EXPECT_EQ(closed.status, 1);
}

TEST(standard_output, that_cannot_be_written_is_told_with_the_reason_of_the_first_time)
{
    const run_t r = run(
        [](output& out) {
            out.log("said");
            errno = EIO; // as any other call may leave it, while the stream is not even tried again
            out.log("more");
            errno = EPERM;
        },
        {stream_t::full_disk, stream_t::file});
    EXPECT_EQ(r.err, "Cannot write to standard output: No space left on device\n");
    EXPECT_EQ(r.status, 1);
}

TEST(standard_output, that_is_full_is_told_after_the_commands_own_message)
{
    const run_t r = run(
        [](output& out) {
            out.log("said");
            out.exit(false, "no luck");
        },
        {stream_t::full_disk, stream_t::file});
    EXPECT_EQ(r.err, "no luck\nCannot write to standard output: No space left on device\n");
    EXPECT_EQ(r.status, 1);
}

TEST(terminal_size, that_cannot_be_read_is_reported_and_otherwise_ignored)
{
    const run_t r = tests::run_in_child(
        [] {
            tests::forbid_terminal_size();
            output::get().log("said");
            output::get().exit();
        },
        {stream_t::terminal, stream_t::file});
    EXPECT_EQ(r.err, "Error getting terminal size: Operation not permitted\n");
    EXPECT_EQ(r.out, "\033[0msaid\033[0m\n");
    EXPECT_EQ(r.status, 0);
}

TEST(terminal_size, is_not_asked_for_in_json_mode)
{
    const run_t r = tests::run_in_child(
        [] {
            output::get().set_format(output_format_t::json);
            tests::forbid_terminal_size();
            output::get().set_format(output_format_t::json);
            output::get().exit();
        },
        {stream_t::terminal, stream_t::file});
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
}

} // namespace
} // namespace ivra::bsp
