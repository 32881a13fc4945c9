#ifndef IVRA_OUTPUT_OUTPUT_H
#define IVRA_OUTPUT_OUTPUT_H

#include "output/json.h"
#include "output/section.h"
#include "output/terminal.h"
#include "text/text_stream.h"

#include <cstdarg>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::bsp {

enum class output_format_t : std::uint32_t
{
    text = 0,
    json = 1,
};

enum class color_mode_t : std::uint32_t
{
    automatic = 0, ///< the word "auto": colour on terminals
    never = 1,
    always = 2,
};

/// The one object through which everything that the program says passes: reports, progress, errors, messages of the
/// platform libraries and the final status. In JSON mode standard output gets nothing but one document, at the end.
class output
{
public:
    using alignment_t = bsp::alignment_t;

    /// The object, made on first use; from then on it also receives the platform's log.
    static output& get();

    void set_color_mode(color_mode_t mode);
    void set_format(output_format_t format);
    /// Chooses the colours of each stream anew, and asks the terminal for its width; both setters do it.
    void reset();
    bool is_json() const { return format_ == output_format_t::json; }

    /// An informational line, recorded together with the parts that led up to it.
    void log(const std::string& text, color c = color::normal);
    /// The beginning of an informational line that the next log() completes; plain, whatever colour it is given.
    void log_part(const std::string& text, color c = color::normal);
    /// An error line, on standard error in both formats.
    void error(const std::string& text);

    /// From now on what the platform logs waits for release_log(): somebody may have stopped the screen.
    void hold_log() noexcept;
    /// Says what the platform has logged meanwhile, and from now on everything at once.
    void release_log() noexcept;

    /// Says how the run ended, completes and writes the JSON document, and ends the process: status 0 after success, 1
    /// after a failure, which a standard output that could not be written is too. No platform handle may be open.
    /// Throws std::bad_alloc when there is no memory for that, or was none for a message.
    [[noreturn]] void exit();
    [[noreturn]] void exit(bool success, std::optional<std::string> message = std::nullopt);

    /// Ends a process that has no memory left, without asking for any: says so on standard error, status 1. In JSON
    /// mode there is no document then.
    [[noreturn]] static void exit_without_memory();

    // Terminal text, on standard output, as a terminal does it.
    void print_text(std::string_view text) { stdout_.print_text(text); }
    void print_line(const std::string& text, color c, unsigned short indent) { stdout_.print_line(text, c, indent); }
    void print_stat(const section::stat_t& stat, unsigned short pad, unsigned short indent)
    {
        stdout_.print_stat(stat, pad, indent);
    }
    void print_out_content(const std::list<section::entry>& entries, unsigned short indent)
    {
        stdout_.print_out_content(entries, indent);
    }
    void print_out_array(const section::array& table) { stdout_.print_out_array(table); }
    void print_table_row(const section::array_entry_t& row, const std::vector<unsigned short>& widths,
                         alignment_t align, unsigned short indent)
    {
        stdout_.print_table_row(row, widths, align, indent);
    }

    // JSON: written to the document.
    void print_json_section(const section& s) { document_.add(s); }
    void print_json_list(const section::list& l) { document_.add(l); }

private:
    output();

    static void handle_log(int level, const char* file, int line, const char* function, const char* format,
                           std::va_list args) noexcept;

    terminal& log_terminal() { return is_json() ? stderr_ : stdout_; }

    std::uint16_t terminal_width_ = 0; ///< columns; 0 until known
    bool success_ = true;
    std::optional<std::string> final_message_;
    bool stdout_is_tty_;
    bool stderr_is_tty_;
    color_mode_t color_mode_ = color_mode_t::automatic;
    output_format_t format_ = output_format_t::text;
    terminal stdout_;
    terminal stderr_;
    json_document document_;
    std::vector<log_message> messages_;
    text_stream pending_line_;
    std::vector<log_message> platform_messages_; ///< logged by the platform, not said yet
    bool is_holding_log_ = false;
    bool has_lost_message_ = false; ///< there was no memory for one of the platform's
};

} // namespace ivra::bsp

#endif
