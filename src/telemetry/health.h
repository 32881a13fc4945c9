#ifndef IVRA_TELEMETRY_HEALTH_H
#define IVRA_TELEMETRY_HEALTH_H

#include "telemetry/reading.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::bsp::telemetry {

/// "ok", "warning", "critical" or "unknown".
std::string_view get_name(health_t health);

/// What an operator should know: a sentence, with value, limit and who set it where that is what it is about.
struct finding_t
{
    std::optional<health_t> health; ///< nothing: it changes no verdict
    std::string text;
};

/// What is to be thought of a thing: nothing where there is nothing to judge it by.
struct verdict_t
{
    std::optional<health_t> health;
    std::vector<finding_t> findings;

    /// The worse of both counts.
    void add(health_t other);
    void add(health_t other, std::string finding);
    void add(const verdict_t& part);
    void remark(std::string finding);
};

/// Judges a reading by its limits and by the comparison of its device; where these disagree the worse counts and a
/// finding says so. A failed one is unknown. One that is unavailable or unsupported, and one without limits and
/// comparison, has no health. `what` begins each finding.
verdict_t judge(const reading_t& reading, const std::string& what);

} // namespace ivra::bsp::telemetry

#endif
