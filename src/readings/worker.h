#ifndef IVRA_READINGS_WORKER_H
#define IVRA_READINGS_WORKER_H

#include "telemetry/board_readings.h"

#include <chrono>
#include <cstdarg>
#include <optional>
#include <string>

namespace ivra::bsp::readings {

// Boards are read by processes of their own: the platform's libraries are for one thread, and a board may take 15
// seconds to come up, or crash what reads it. A worker is this program once more, at the other end of a socket. It gets
// a line with the operator's limits, as text of JSON, and one for each board; it answers each of these with one line
// for each message of the platform's log, when it comes, and one for the board. It ends when the socket is closed.

/// The word by which this program is started as a worker, and the descriptor of its socket.
inline constexpr const char* worker_word = "--worker";
inline constexpr int worker_socket = 3;

struct request_t
{
    telemetry::accelerator_identity_t board;
    telemetry::parts_t parts;
    std::chrono::milliseconds time; ///< that the board may take; 0: any
};
std::string encode_request(const request_t& request);

/// The first letter of an answer's line.
enum class answer_t : char
{
    log = 'L',   ///< a message
    error = 'E', ///< a message at error level
    board = 'B', ///< the board's document; the last line
};

/// A message of the platform's log as a line, without its end.
std::string format_message(const char* function, const char* format, std::va_list args);

/// What a message at error level is to the board that was being read.
telemetry::finding_t make_log_finding(const std::string& message);

/// Reads boards until the socket is closed; returns the exit status.
int run_worker();

} // namespace ivra::bsp::readings

#endif
