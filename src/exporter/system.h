#ifndef IVRA_EXPORTER_SYSTEM_H
#define IVRA_EXPORTER_SYSTEM_H

#include <string>

namespace ivra::bsp::exporter {

/// An open descriptor; -1: none.
class descriptor_t
{
public:
    explicit descriptor_t(int number = -1) : number_{number} {}
    descriptor_t(descriptor_t&& other) noexcept : number_{other.number_} { other.number_ = -1; }
    descriptor_t& operator=(descriptor_t&& other) noexcept;
    ~descriptor_t() { close(); }

    int get() const { return number_; }
    void close();

private:
    int number_;
};

/// Throws std::system_error.
[[noreturn]] void fail(const std::string& what, int error);

} // namespace ivra::bsp::exporter

#endif
