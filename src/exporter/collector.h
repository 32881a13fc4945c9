#ifndef IVRA_EXPORTER_COLLECTOR_H
#define IVRA_EXPORTER_COLLECTOR_H

#include "text/json.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::exporter {

/// The verdicts of a document, from best to worst.
inline constexpr const char* healths[] = {"ok", "unknown", "warning", "critical"};

/// Why a board has no document in an answer.
enum class absence_t
{
    late,   ///< it was asked, and is not in yet
    held,   ///< an earlier collection still waits for it, or did so a moment ago
    failed, ///< what read it ended, or said something that is no document
};

/// A board as a collection knows it.
struct board_t
{
    std::string key; ///< what tells it from others: its uid, else its name, else its index
    std::optional<unsigned> index;
    std::optional<std::string> name, uid;

    std::string document; ///< a JSON object on one line; empty where there is none
    double seconds = 0;   ///< from the beginning of the collection to the document
    absence_t absence = absence_t::late;
    std::string error; ///< why it failed
};

/// What there is to answer with.
struct snapshot_t
{
    std::vector<board_t> boards;                ///< in the order of the host
    bool is_listed = false;                     ///< whether the boards of the host are known, all of them
    std::string error;                          ///< why they are not
    double seconds = 0;                         ///< that the collection took; up to now when it goes on
    std::chrono::system_clock::time_point time; ///< when it ended; now when it goes on
    std::string host, version, platform;        ///< as the program that reads says; empty before it did
    std::uint64_t collections = 0, set_aside = 0, refused_lines = 0; ///< since the start
    std::size_t held_readers = 0;
};

/// Keeps apart what of the boards was read in which collection. Others start the processes that read and listen to
/// them; a process stands here for its number.
///
/// A collection asks for every board but those that a process of an earlier collection still owes, or owed until a
/// moment ago: 1, 2, 4 ... 300 s, the longer the more often it was late. Nothing is ever asked twice at a time.
class collector
{
public:
    using time_point = std::chrono::steady_clock::time_point;
    using reader_t = std::uint64_t;

    explicit collector(std::chrono::milliseconds max_age) : max_age_{max_age} {}

    struct order_t
    {
        reader_t reader;
        std::vector<std::string> skipped; ///< keys of boards
    };
    /// Somebody wants an answer, and `is_awaited` says whether others already wait for one. Returns the process to be
    /// started, if any: none where the last collection is young enough, or goes on, unless it does so for long and
    /// nobody waits for it.
    std::optional<order_t> ask(time_point now, bool is_awaited);
    /// Nobody waits any more: a collection that is not complete is set aside.
    void set_aside();

    /// A line of what a process says.
    void take_line(reader_t reader, const std::string& line, time_point now);
    /// A process has ended; `how` is a sentence for people. One that could not be started has ended, too.
    void take_end(reader_t reader, const std::string& how, time_point now);

    /// Whether there is nothing to wait for.
    bool is_complete() const;
    /// Whether the process of this collection has said which boards there are, or why not.
    bool is_announced() const;

    snapshot_t make_snapshot(time_point now) const;

private:
    struct known_board_t
    {
        board_t board;
        std::optional<reader_t> reader; ///< that owes it
        std::optional<time_point> late; ///< when a process that had been set aside said its document
        std::uint64_t collection = 0;   ///< that the document, or the failure, belongs to
        unsigned times_late = 0;        ///< in a row
        time_point ask_after{};
    };
    struct state_t ///< of a process
    {
        time_point begin;
        bool is_announced = false, is_done = false;
        std::string refusal; ///< why nothing that it says counts
    };

    void take_announcement(reader_t reader, const std::string& line);
    void take_document(reader_t reader, const std::string& line, time_point now);
    void take_host(reader_t reader, const json_t& document);
    void end(time_point now);
    void refuse(reader_t reader, const std::string& why);
    void wait_longer(known_board_t& known, time_point now) const;

    std::chrono::milliseconds max_age_;
    std::map<std::string, known_board_t> boards_;
    std::map<reader_t, state_t> readers_;
    std::optional<reader_t> current_; ///< the process of the last collection, unless it was set aside
    reader_t last_reader_ = 0;
    time_point begin_{}, end_{}; ///< of the last collection
    std::chrono::system_clock::time_point end_time_;
    bool is_listed_ = false;
    std::string error_ = "nothing was collected yet";
    std::string host_, version_, platform_;
    std::uint64_t collections_ = 0, set_aside_ = 0, refused_lines_ = 0;
};

} // namespace ivra::bsp::exporter

#endif
