#include "exporter/collector.h"

#include "text/json.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <utility>

namespace ivra::bsp::exporter {

namespace {

constexpr unsigned known_format = 1;
constexpr std::chrono::seconds longest_pause{300};
constexpr std::chrono::milliseconds patience{10'000}; // with a collection that nobody waits for: what a scrape may take

double to_seconds(std::chrono::steady_clock::duration duration)
{
    return std::chrono::duration<double>{duration}.count();
}

std::optional<std::string> get_optional_text(const json_t& object, const char* member)
{
    const json_t& value = get_member(object, member);
    return value.IsString() ? std::optional{get_text(object, member)} : std::nullopt;
}

/// As --skip takes one.
board_t make_board(const json_t& identity)
{
    board_t board;
    board.name = get_optional_text(identity, "name");
    board.uid = get_optional_text(identity, "uid");
    if (const json_t& index = get_member(identity, "index"); index.IsUint())
        board.index = index.GetUint();
    board.key = board.uid.value_or(board.name.value_or(board.index ? std::to_string(*board.index) : ""));
    return board;
}

/// Whether all strings are UTF-8.
bool is_text(const rapidjson::Document& document)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>, rapidjson::CrtAllocator,
                      rapidjson::kWriteValidateEncodingFlag>
        writer{buffer};
    return document.Accept(writer);
}

/// Null when it is no JSON.
rapidjson::Document parse(const std::string& line)
{
    rapidjson::Document document;
    if (line.find('\0') == std::string::npos) // where the library would take the text to end
        document.Parse<rapidjson::kParseValidateEncodingFlag>(line.data(), line.size());
    // The library makes bytes that are no text of half a surrogate pair, "\udc00".
    if (line.find("\\u") != std::string::npos && !is_text(document))
        document.SetNull();
    return document;
}

} // namespace

std::optional<collector::order_t> collector::ask(time_point now, bool is_awaited)
{
    const auto age = now - begin_;
    if (current_ && (is_complete() ? age < max_age_ : is_awaited || age < std::max(max_age_, patience)))
        return std::nullopt;
    set_aside();
    current_.reset();
    const bool is_being_listed =
        std::ranges::any_of(readers_, [](const auto& reader) { return !reader.second.is_announced; });
    begin_ = now;
    end(now);
    ++collections_;
    order_t order{.reader = 0, .skipped = {}};
    for (auto& [key, known] : boards_) {
        if (known.late && now - *known.late < max_age_)
            known.collection = collections_;
        if (known.reader || known.ask_after > now || known.collection == collections_)
            order.skipped.push_back(key);
    }
    is_listed_ = false;
    if (is_being_listed) { // one more would get no further
        error_ = "an earlier collection still looks for the boards";
        return std::nullopt;
    }
    error_ = "the boards are still looked for";
    order.reader = ++last_reader_;
    current_ = order.reader;
    readers_[order.reader].begin = now;
    return order;
}

void collector::set_aside()
{
    if (is_complete())
        return;
    ++set_aside_;
    for (auto& [key, known] : boards_)
        if (known.reader == current_)
            ++known.times_late;
    current_.reset();
}

void collector::take_line(reader_t reader, const std::string& line, time_point now)
{
    const auto found = readers_.find(reader);
    if (found == readers_.end() || !found->second.refusal.empty())
        return;
    if (!found->second.is_announced)
        take_announcement(reader, line);
    else
        take_document(reader, line, now);
    if (reader == current_)
        end(now);
}

void collector::end(time_point now)
{
    end_ = now;
    end_time_ = std::chrono::system_clock::now();
}

void collector::take_announcement(reader_t reader, const std::string& line)
{
    const rapidjson::Document document = parse(line);
    const json_t& format = get_member(document, "format");
    if (!format.IsUint() || format.GetUint() != known_format)
        return refuse(reader, "what reads the boards does not speak format 1 of their documents");
    const json_t& announced = get_member(document, "announced");
    if (!announced.IsArray())
        return refuse(reader, "what reads the boards does not say which there are");
    readers_[reader].is_announced = true;
    host_ = get_text(document, "host");
    version_ = get_text(document, "version");
    platform_ = get_text(document, "platform");
    for (const json_t& identity : announced.GetArray()) {
        board_t board = make_board(identity);
        known_board_t& known = boards_[board.key];
        if (known.reader) {
            ++refused_lines_; // two boards that nothing tells apart, or one that was left out
            continue;
        }
        known.board = std::move(board);
        known.reader = reader;
    }
    if (reader != current_)
        return;
    is_listed_ = true;
    error_.clear();
    // A board that was neither announced nor left out is gone.
    std::erase_if(boards_, [&](const auto& entry) {
        const known_board_t& known = entry.second;
        return !known.reader && known.ask_after <= begin_ && known.collection != collections_;
    });
}

void collector::take_document(reader_t reader, const std::string& line, time_point now)
{
    const rapidjson::Document document = parse(line);
    if (!get_member(document, "state").IsString()) {
        if (get_member(document, "health").IsString())
            take_host(reader, document);
        else
            ++refused_lines_;
        return;
    }
    const auto found = boards_.find(make_board(document).key);
    if (found == boards_.end() || found->second.reader != reader) {
        ++refused_lines_;
        return;
    }
    known_board_t& known = found->second;
    known.reader.reset();
    known.board.document = line;
    known.board.seconds = to_seconds(now - readers_[reader].begin);
    known.collection = collections_;
    if (reader == current_) {
        known.times_late = 0;
    } else {
        known.late = now;
        wait_longer(known, now);
    }
}

void collector::take_host(reader_t reader, const json_t& document)
{
    readers_[reader].is_done = true;
    if (reader != current_)
        return;
    for_each(document, "findings", [this](const json_t& finding) { // there are boards that it could not list
        error_ = get_text(finding, "text");
        is_listed_ = false;
    });
}

void collector::refuse(reader_t reader, const std::string& why)
{
    ++refused_lines_;
    state_t& state = readers_[reader];
    state.is_announced = state.is_done = true;
    state.refusal = why;
    if (reader == current_)
        error_ = why;
}

void collector::wait_longer(known_board_t& known, time_point now) const
{
    const unsigned doublings = std::min(known.times_late == 0 ? 0U : known.times_late - 1, 9U);
    known.ask_after = now + std::min(longest_pause, std::chrono::seconds{1U << doublings});
}

void collector::take_end(reader_t reader, const std::string& how, time_point now)
{
    const auto found = readers_.find(reader);
    if (found == readers_.end())
        return;
    for (auto& [key, known] : boards_) {
        if (known.reader != reader)
            continue;
        known.reader.reset();
        if (reader == current_) {
            known.board.absence = absence_t::failed;
            known.board.error = how;
            known.collection = collections_;
        } else {
            wait_longer(known, now);
        }
    }
    if (reader == current_ && !found->second.is_done) {
        end(now);
        if (!found->second.is_announced)
            error_ = how;
    }
    readers_.erase(found);
}

bool collector::is_complete() const
{
    if (!current_)
        return true;
    const auto found = readers_.find(*current_);
    return found == readers_.end() || found->second.is_done;
}

bool collector::is_announced() const
{
    if (!current_)
        return false;
    const auto found = readers_.find(*current_);
    return found == readers_.end() || found->second.is_announced;
}

snapshot_t collector::make_snapshot(time_point now) const
{
    snapshot_t snapshot{.boards = {},
                        .is_listed = is_listed_,
                        .error = error_,
                        .seconds = to_seconds((is_complete() ? end_ : now) - begin_),
                        .time = is_complete() ? end_time_ : std::chrono::system_clock::now(),
                        .host = host_,
                        .version = version_,
                        .platform = platform_,
                        .collections = collections_,
                        .set_aside = set_aside_,
                        .refused_lines = refused_lines_};
    for (const auto& [key, known] : boards_) {
        board_t board = known.board;
        if (known.collection != collections_) {
            board.document.clear();
            if (known.reader ? known.reader != current_ : known.ask_after > begin_)
                board.absence = absence_t::held;
            else if (!known.reader && is_complete())
                board.absence = absence_t::failed;
            else
                board.absence = absence_t::late;
            board.error = error_;
        }
        snapshot.boards.push_back(std::move(board));
    }
    std::ranges::sort(snapshot.boards, {}, [](const board_t& board) { return std::pair{board.index, board.key}; });
    for (const auto& [reader, state] : readers_)
        snapshot.held_readers += reader != current_ && !state.is_done ? 1 : 0;
    return snapshot;
}

} // namespace ivra::bsp::exporter
