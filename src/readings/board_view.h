#ifndef IVRA_READINGS_BOARD_VIEW_H
#define IVRA_READINGS_BOARD_VIEW_H

#include "telemetry/health.h"

#include <rapidjson/document.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::readings {

using json_t = rapidjson::Value;

/// A reading in a board's document, and where it is: "FPGA", "cage 1", "cage 1 lane 2" or nothing.
struct located_reading_t
{
    std::string where;
    const json_t& reading;
};

/// A member of an object; null where there is none.
const json_t& get_member(const json_t& object, const char* member);

/// The elements of a list; none where there is no such member.
template <class Visit>
void for_each(const json_t& object, const char* member, Visit visit)
{
    if (const json_t& list = get_member(object, member); list.IsArray())
        for (const json_t& element : list.GetArray())
            visit(element);
}

/// A text of an object; empty where there is none.
std::string get_text(const json_t& object, const char* member);
std::optional<double> get_number(const json_t& object, const char* member);
/// A number that counts something, as a text; empty where there is none.
std::string get_count(const json_t& object, const char* member);
/// Nothing for a thing without health.
std::optional<telemetry::health_t> get_health(const json_t& object);

/// Every reading of a board.
std::vector<located_reading_t> get_readings(const json_t& board);

/// Whether the board, or anything of it, could not be read.
bool has_failure(const json_t& board);

/// What people call a board: its name, else its uid, else its index.
std::string get_name(const json_t& board);

} // namespace ivra::bsp::readings

#endif
