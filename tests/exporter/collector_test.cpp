#include "exporter/collector.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ivra::bsp::exporter {
namespace {

using namespace std::chrono_literals;

/// A host whose boards are read by processes of which the test says what they say, at times that the test sets.
class host_t
{
public:
    collector boards{5s};
    collector::time_point now{1h};
    std::vector<std::string> skipped; ///< by the process that was asked for last

    host_t& at(std::chrono::milliseconds time)
    {
        now = collector::time_point{1h} + time;
        return *this;
    }
    /// The process that a scrape starts; 0: none.
    collector::reader_t scrape(bool is_awaited = false)
    {
        const auto order = boards.ask(now, is_awaited);
        if (order)
            skipped = order->skipped;
        return order ? order->reader : 0;
    }
    host_t& announce(collector::reader_t reader, const std::vector<std::string>& uids)
    {
        std::string list;
        for (const std::string& uid : uids)
            list += (list.empty() ? "" : ",") +
                    (R"({"index":)" + std::to_string(uid.back() - 'a') + R"(,"uid":")" + uid + "\"}");
        return say(reader,
                   R"({"format":1,"host":"h","version":"1.2","platform":"simulated","announced":[)" + list + "]}");
    }
    host_t& read(collector::reader_t reader, const std::string& uid, const std::string& serial = "")
    {
        return say(reader, R"({"index":)" + std::to_string(uid.back() - 'a') + R"(,"uid":")" + uid +
                               R"(","state":"ok","serial":")" + serial + R"("})");
    }
    host_t& finish(collector::reader_t reader)
    {
        say(reader, R"({"format":1,"health":"ok","board_count":1})");
        return end(reader);
    }
    host_t& say(collector::reader_t reader, const std::string& line)
    {
        boards.take_line(reader, line, now);
        return *this;
    }
    host_t& end(collector::reader_t reader, const std::string& how = "it ended")
    {
        boards.take_end(reader, how, now);
        return *this;
    }

    /// "a, b late": what there is of each board.
    std::string state() const
    {
        std::string text;
        for (const board_t& board : boards.make_snapshot(now).boards) {
            text += (text.empty() ? "" : ", ") + board.key;
            if (!board.document.empty())
                continue;
            text += board.absence == absence_t::late   ? " late"
                    : board.absence == absence_t::held ? " held"
                                                       : " failed: " + board.error;
        }
        return text;
    }
};

using keys_t = std::vector<std::string>;

TEST(collector, asks_for_every_board_and_is_complete_when_all_are_in)
{
    host_t host;
    const auto reader = host.scrape();
    EXPECT_NE(reader, 0U);
    EXPECT_EQ(host.skipped, keys_t{});
    EXPECT_FALSE(host.boards.is_announced());
    host.at(100ms).announce(reader, {"b", "a"});
    EXPECT_TRUE(host.boards.is_announced());
    EXPECT_EQ(host.state(), "a late, b late");
    host.at(300ms).read(reader, "b").at(500ms).read(reader, "a");
    EXPECT_FALSE(host.boards.is_complete());
    host.finish(reader);
    EXPECT_TRUE(host.boards.is_complete());
    EXPECT_EQ(host.state(), "a, b");
    const snapshot_t snapshot = host.at(900ms).boards.make_snapshot(host.now);
    EXPECT_TRUE(snapshot.is_listed);
    EXPECT_EQ(snapshot.seconds, 0.5);
    EXPECT_EQ(snapshot.boards[0].seconds, 0.5);
    EXPECT_EQ(snapshot.boards[1].seconds, 0.3);
    EXPECT_EQ(snapshot.host, "h");
    EXPECT_EQ(snapshot.version, "1.2");
    EXPECT_EQ(snapshot.platform, "simulated");
    EXPECT_EQ(snapshot.collections, 1U);
    EXPECT_EQ(snapshot.set_aside, 0U);
    EXPECT_EQ(snapshot.held_readers, 0U);
}

TEST(collector, uses_a_young_collection_again_and_shares_one_that_is_waited_for)
{
    host_t host;
    const auto first = host.scrape();
    host.announce(first, {"a"});
    EXPECT_EQ(host.at(4s).scrape(), 0U) << "young";
    EXPECT_EQ(host.at(8s).scrape(true), 0U) << "somebody waits for it";
    host.read(first, "a").finish(first);
    EXPECT_EQ(host.state(), "a");
    const auto second = host.at(8001ms).scrape(true);
    EXPECT_NE(second, 0U) << "it began 5 s ago";
    EXPECT_EQ(host.announce(second, {"a"}).state(), "a late") << "never an older value";
    host.read(second, "a").finish(second);
    EXPECT_EQ(host.at(13000ms).scrape(), 0U);
    EXPECT_NE(host.at(13001ms).scrape(), 0U);
}

TEST(collector, begins_anew_when_nobody_waits_for_an_old_collection)
{
    host_t host;
    const auto first = host.scrape();
    host.announce(first, {"a", "b"}).read(first, "a");
    EXPECT_EQ(host.at(9999ms).scrape(), 0U);
    const auto second = host.at(10s).scrape();
    EXPECT_NE(second, 0U);
    EXPECT_EQ(host.skipped, keys_t{"b"}) << "the first one still owes it";
    EXPECT_EQ(host.boards.make_snapshot(host.now).set_aside, 1U);
}

TEST(collector, leaves_out_a_board_that_is_held_until_it_has_been_read)
{
    host_t host;
    const auto first = host.scrape();
    host.announce(first, {"a", "b"}).read(first, "a").at(9500ms);
    EXPECT_EQ(host.state(), "a, b late");
    host.boards.set_aside();
    EXPECT_TRUE(host.boards.is_complete());

    const auto second = host.at(15s).scrape();
    EXPECT_EQ(host.skipped, keys_t{"b"});
    host.announce(second, {"a", "c"}).read(second, "a").read(second, "c").finish(second);
    EXPECT_TRUE(host.boards.is_complete()) << "nobody waits for the held one";
    EXPECT_EQ(host.state(), "a, b held, c") << "a new one is asked at once";
    EXPECT_EQ(host.boards.make_snapshot(host.now).held_readers, 1U);

    host.at(20s).read(first, "b", "late").finish(first);
    EXPECT_EQ(host.state(), "a, b, c") << "it was read just now";
    EXPECT_EQ(host.boards.make_snapshot(host.now).boards[1].seconds, 20) << "since it was asked";
    EXPECT_EQ(host.boards.make_snapshot(host.now).held_readers, 0U);
    const auto third = host.at(30s).scrape();
    EXPECT_EQ(host.skipped, keys_t{});
    EXPECT_EQ(host.announce(third, {"a", "b", "c"}).state(), "a late, b late, c late");
}

TEST(collector, has_a_late_board_in_the_next_answer_while_it_is_young)
{
    host_t host;
    const auto first = host.scrape();
    host.announce(first, {"a", "b"}).read(first, "a").at(9500ms).boards.set_aside();
    host.at(12s).read(first, "b", "late").finish(first);
    auto next = host.at(14s).scrape();
    EXPECT_EQ(host.skipped, keys_t{"b"}) << "it was read 2 s ago";
    EXPECT_EQ(host.announce(next, {"a"}).read(next, "a").finish(next).state(), "a, b");
    next = host.at(20s).scrape();
    EXPECT_EQ(host.skipped, keys_t{});
    EXPECT_EQ(host.announce(next, {"a", "b"}).state(), "a late, b late") << "8 s old";
}

TEST(collector, asks_a_board_that_was_held_after_1_2_4_and_at_most_300_s)
{
    host_t host;
    auto time = 0ms;
    for (const auto pause : {1s, 2s, 4s, 8s, 16s, 32s, 64s, 128s, 256s, 300s, 300s}) {
        const auto reader = host.at(time).scrape();
        EXPECT_EQ(host.skipped, keys_t{}) << pause.count();
        host.announce(reader, {"a"}).at(time += 9s).boards.set_aside();
        host.at(time += 100s).end(reader);
        EXPECT_EQ(host.state(), "a held");
        const auto early = host.at(time + pause - 1ms).scrape();
        EXPECT_EQ(host.skipped, keys_t{"a"}) << pause.count();
        host.announce(early, {}).finish(early);
        EXPECT_EQ(host.state(), "a held");
        time += pause + 6s;
    }
    const auto reader = host.at(time).scrape();
    host.announce(reader, {"a"}).read(reader, "a").finish(reader);
    const auto again = host.at(time += 6s).scrape();
    host.announce(again, {"a"}).at(time += 9s).boards.set_aside();
    host.end(again);
    host.at(time += 5s).scrape();
    EXPECT_EQ(host.skipped, keys_t{}) << "in time once, it begins with a second again";
}

TEST(collector, never_asks_twice_at_a_time_while_boards_are_looked_for)
{
    host_t host;
    const auto first = host.scrape();
    host.at(9s).boards.set_aside();
    EXPECT_EQ(host.at(10s).scrape(), 0U);
    EXPECT_TRUE(host.boards.is_complete());
    EXPECT_FALSE(host.boards.is_announced());
    EXPECT_FALSE(host.boards.make_snapshot(host.now).is_listed);
    EXPECT_EQ(host.boards.make_snapshot(host.now).error, "an earlier collection still looks for the boards");
    host.announce(first, {"a"});
    const auto second = host.at(11s).scrape();
    EXPECT_NE(second, 0U);
    EXPECT_EQ(host.skipped, keys_t{"a"}) << "now the first one owes it";
    host.announce(second, {"b"}).read(second, "b").finish(second);
    EXPECT_EQ(host.state(), "a held, b");
}

TEST(collector, tells_a_board_that_goes_comes_and_changes_its_index)
{
    host_t host;
    auto reader = host.scrape();
    host.announce(reader, {"a", "b"}).read(reader, "a").read(reader, "b").finish(reader);
    reader = host.at(6s).scrape();
    host.announce(reader, {"b"}).read(reader, "b").finish(reader);
    EXPECT_EQ(host.state(), "b");
    reader = host.at(12s).scrape();
    host.say(reader, R"({"format":1,"announced":[{"index":7,"uid":"a"},{"index":2,"uid":"b"}]})");
    EXPECT_EQ(host.state(), "b late, a late") << "by their index";
}

TEST(collector, takes_boards_without_a_uid)
{
    host_t host;
    auto reader = host.scrape();
    host.say(reader, R"({"format":1,"announced":[{"index":0,"name":"n"},{"index":1}]})");
    EXPECT_EQ(host.state(), "n late, 1 late");
    host.say(reader, R"({"index":0,"name":"n","state":"ok"})").at(9s).boards.set_aside();
    reader = host.at(10s).scrape();
    EXPECT_EQ(host.skipped, keys_t{"1"});
}

TEST(collector, fails_boards_whose_reader_ends_before_it_said_them)
{
    host_t host;
    const auto reader = host.scrape();
    host.announce(reader, {"a", "b"}).read(reader, "a").end(reader, "it was ended by signal 9");
    EXPECT_TRUE(host.boards.is_complete());
    EXPECT_EQ(host.state(), "a, b failed: it was ended by signal 9");
    host.at(6s).scrape();
    EXPECT_EQ(host.skipped, keys_t{}) << "that scrape only";
}

TEST(collector, says_why_the_boards_are_not_known)
{
    const auto error = [](const std::string& line) {
        host_t host;
        const auto old = host.scrape();
        host.announce(old, {"a"}).read(old, "a").finish(old);
        const auto reader = host.at(6s).scrape();
        if (!line.empty())
            host.say(reader, line).announce(reader, {"b"}).read(reader, "b");
        host.end(reader, "it ended with status 2");
        const snapshot_t snapshot = host.boards.make_snapshot(host.now);
        EXPECT_FALSE(snapshot.is_listed) << line;
        EXPECT_EQ(snapshot.refused_lines, line.empty() ? 0U : 1U);
        EXPECT_EQ(host.state(), "a failed: " + snapshot.error);
        return snapshot.error;
    };
    EXPECT_EQ(error(""), "it ended with status 2");
    const std::string other_format = "what reads the boards does not speak format 1 of their documents";
    EXPECT_EQ(error("no JSON"), other_format);
    EXPECT_EQ(error("[]"), other_format);
    EXPECT_EQ(error(R"({"format":2,"announced":[]})"), other_format);
    EXPECT_EQ(error(R"({"format":"1","announced":[]})"), other_format);
    EXPECT_EQ(error("{\"format\":1,\"host\":\"\xFF\",\"announced\":[]}"), other_format) << "no UTF-8";
    EXPECT_EQ(error(R"({"format":1})"), "what reads the boards does not say which there are");
}

TEST(collector, says_that_there_may_be_more_boards_than_were_listed)
{
    host_t host;
    const auto reader = host.scrape();
    host.announce(reader, {"a"}).read(reader, "a");
    host.say(reader, R"({"format":1,"health":"unknown","board_count":1,"findings":[{"text":"One is missing"}]})");
    EXPECT_TRUE(host.boards.is_complete());
    EXPECT_EQ(host.state(), "a");
    EXPECT_FALSE(host.boards.make_snapshot(host.now).is_listed);
    EXPECT_EQ(host.boards.make_snapshot(host.now).error, "One is missing");
}

TEST(collector, counts_lines_that_are_no_documents_of_announced_boards)
{
    host_t host;
    const auto reader = host.scrape();
    host.announce(reader, {"a", "b", "a"});
    EXPECT_EQ(host.state(), "a late, b late");
    for (const char* line : {"", "{", "[]", "7", R"({"uid":"a"})", R"({"uid":"c","state":"ok"})", "\xFF"})
        host.say(reader, line);
    host.say(reader, std::string{R"({"uid":"b","state":"ok"})"} + '\0' + "x");
    EXPECT_EQ(host.state(), "a late, b late");
    host.read(reader, "a").read(reader, "a", "again").say(reader + 1, "{}").end(reader + 1);
    EXPECT_EQ(host.boards.make_snapshot(host.now).refused_lines, 10U);
    EXPECT_EQ(host.boards.make_snapshot(host.now).boards[0].document,
              R"({"index":0,"uid":"a","state":"ok","serial":""})");
}

TEST(collector, refuses_text_that_is_none)
{
    host_t host;
    const auto reader = host.scrape();
    host.announce(reader, {"a", "b"});
    host.read(reader, "a", R"(\udc00)").read(reader, "b", R"(\ud83d\ude00)");
    EXPECT_EQ(host.state(), "a late, b") << "half of a character, and a whole one";
    EXPECT_EQ(host.boards.make_snapshot(host.now).refused_lines, 1U);
}

TEST(collector, goes_on_with_a_collection_while_somebody_waits_or_it_is_young)
{
    host_t host;
    host.announce(host.scrape(), {"a"});
    EXPECT_EQ(host.at(12s).scrape(true), 0U);
    EXPECT_NE(host.at(12s).scrape(), 0U);
    host_t calm;
    calm.boards = collector{60s};
    calm.announce(calm.scrape(), {"a"});
    EXPECT_EQ(calm.at(59'999ms).scrape(), 0U);
    EXPECT_NE(calm.at(60s).scrape(), 0U);
}

TEST(collector, tells_how_long_a_collection_took_whatever_comes_later)
{
    host_t host;
    const auto seconds = [&host] { return host.boards.make_snapshot(host.now).seconds; };
    const auto time = [&host] { return host.boards.make_snapshot(host.now).time; };
    const auto first = host.scrape();
    host.at(1s).announce(first, {"a", "b"}).read(first, "a");
    EXPECT_EQ(host.at(3s).boards.make_snapshot(host.now).seconds, 3) << "it goes on";
    const auto earlier = time();
    EXPECT_LT(earlier, time());
    host.at(9s).boards.set_aside();
    const auto second = host.at(10s).scrape();
    host.announce(second, {"a"});
    EXPECT_EQ(host.boards.make_snapshot(host.now).held_readers, 1U) << "the second one is no held one";
    host.at(11s).read(second, "a").say(second, R"({"format":1,"health":"ok"})").at(12s).end(second);
    EXPECT_EQ(seconds(), 1) << "its process took its time to end";
    const auto ended = time();
    host.at(13s).read(first, "b").say(first, R"({"health":"unknown","findings":[{"text":"One is missing"}]})");
    EXPECT_EQ(seconds(), 1) << "the first one's boards are another matter";
    EXPECT_EQ(time(), ended);
    EXPECT_TRUE(host.boards.make_snapshot(host.now).is_listed);
    EXPECT_EQ(host.boards.make_snapshot(host.now).held_readers, 0U) << "it has said all";

    const auto third = host.at(20s).scrape();
    host.announce(third, {"a"}).at(23s).end(third);
    EXPECT_EQ(seconds(), 3);
    EXPECT_TRUE(host.boards.make_snapshot(host.now).is_listed);
    EXPECT_EQ(host.boards.make_snapshot(host.now).error, "");
}

TEST(collector, says_what_it_knows_before_the_boards_are_listed)
{
    host_t host;
    auto reader = host.scrape();
    EXPECT_EQ(host.boards.make_snapshot(host.now).error, "the boards are still looked for");
    host.announce(reader, {"a"}).read(reader, "a").finish(reader);
    reader = host.at(6s).scrape();
    EXPECT_EQ(host.state(), "a late");
    EXPECT_FALSE(host.boards.make_snapshot(host.now).is_listed);
    EXPECT_FALSE(host.boards.is_announced());
    host.end(reader);
    EXPECT_TRUE(host.boards.is_announced()) << "there is nothing to wait for";
    reader = host.at(12s).scrape();
    host.say(reader, R"({"format":2})");
    EXPECT_TRUE(host.boards.is_complete()) << "whether it ends or not";
}

TEST(collector, takes_what_was_not_listed_in_time_for_late_once)
{
    host_t host;
    const auto first = host.scrape();
    host.at(9s).boards.set_aside();
    host.at(10s).scrape();
    EXPECT_EQ(host.at(13s).boards.make_snapshot(host.now).seconds, 0) << "nothing was read";
    host.announce(first, {"a"});
    EXPECT_FALSE(host.boards.make_snapshot(host.now).is_listed) << "that was an earlier collection";
    host.at(20s).end(first);
    const auto second = host.at(21s).scrape();
    EXPECT_EQ(host.skipped, keys_t{}) << "a second later";
    EXPECT_EQ(host.announce(second, {}).state(), "") << "it has gone";
}

TEST(collector, waits_longer_for_a_board_that_comes_late_again_and_again)
{
    host_t host;
    host.boards = collector{0s};
    auto time = 0ms;
    for (const auto pause : {1s, 2s, 4s}) {
        const auto reader = host.at(time).scrape();
        EXPECT_EQ(host.skipped, keys_t{}) << pause.count();
        host.announce(reader, {"a", "b"}).read(reader, "a").at(time += 9s).boards.set_aside();
        host.at(time += 1s).read(reader, "b").finish(reader);
        const auto early = host.at(time + pause - 1ms).scrape();
        EXPECT_EQ(host.skipped, keys_t{"b"}) << pause.count();
        host.announce(early, {"a"}).read(early, "a").finish(early);
        time += pause;
    }
    auto reader = host.at(time).scrape();
    host.announce(reader, {"a", "b"}).read(reader, "b").at(time += 9s).boards.set_aside();
    host.end(reader).at(time += 1s).scrape();
    EXPECT_EQ(host.skipped, keys_t{}) << "the other one was never late before";
}

TEST(collector, takes_no_announcement_of_a_board_that_is_held)
{
    host_t host;
    const auto first = host.scrape();
    host.announce(first, {"a", "b"}).read(first, "a").at(9s).boards.set_aside();
    const auto second = host.at(10s).scrape();
    host.announce(second, {"a", "b"}).read(second, "a").read(second, "b").finish(second);
    EXPECT_EQ(host.state(), "a, b held");
    EXPECT_EQ(host.boards.make_snapshot(host.now).refused_lines, 2U) << "announced, and read";
}

TEST(collector, takes_a_late_board_for_young_for_less_than_its_age)
{
    host_t host;
    const auto first = host.scrape();
    host.announce(first, {"a"}).at(9s).boards.set_aside();
    host.at(12s).read(first, "a").finish(first);
    host.at(17s).scrape();
    EXPECT_EQ(host.skipped, keys_t{});
}

TEST(collector, keeps_nothing_of_boards_and_processes_that_are_gone)
{
    host_t host;
    host.boards = collector{0s};
    for (int at = 0; at < 10'000; ++at) {
        const auto reader = host.at(std::chrono::seconds{at}).scrape();
        const std::string uid = std::to_string(at) + "a";
        host.announce(reader, {uid}).read(reader, uid).finish(reader);
        ASSERT_EQ(host.state(), uid);
    }
    const snapshot_t snapshot = host.boards.make_snapshot(host.now);
    EXPECT_EQ(snapshot.collections, 10'000U);
    EXPECT_EQ(snapshot.held_readers, 0U);
    host.at(8766h).scrape();
    EXPECT_EQ(host.skipped, keys_t{}) << "a year later, as after a long sleep";
}

} // namespace
} // namespace ivra::bsp::exporter
