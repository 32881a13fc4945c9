#ifndef IVRA_TEXT_TEXT_STREAM_H
#define IVRA_TEXT_TEXT_STREAM_H

#include <ios>
#include <sstream>

namespace ivra::bsp {

/// A stream that makes a text. Unlike the library's own, it does not drop what there is no memory for without a word:
/// it throws std::bad_alloc.
class text_stream : public std::ostringstream
{
public:
    text_stream() { exceptions(std::ios_base::badbit); }
};

} // namespace ivra::bsp

#endif
