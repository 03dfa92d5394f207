#include <new>

#include <HalvardSling/curl/internal/GzipDecoder.hpp>

namespace HalvardSling::internal {

namespace {

constexpr unsigned partBytes = 32U * 1024;

/// The largest window, and a head of either gzip or zlib, which some services send under the name
/// "deflate".
constexpr int anyHead = MAX_WBITS + 32;

}  // namespace

GzipDecoder::GzipDecoder() : part_(new char[partBytes]) {
    auto stream = std::make_unique<z_stream>();
    if (inflateInit2(stream.get(), anyHead) != Z_OK) throw std::bad_alloc();
    stream_.reset(stream.release());
}

void GzipDecoder::StreamEnd::operator()(z_stream* stream) const noexcept {
    inflateEnd(stream);
    delete stream;
}

void GzipDecoder::setInput(std::string_view piece) noexcept {
    if (state_ != State::within) {
        state_ = State::broken;
        return;
    }
    // zlib declares it without const, and does not write to it.
    stream_->next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
    stream_->avail_in = static_cast<uInt>(piece.size());
}

/// What comes out next of the input; empty if there is nothing more.
std::string_view GzipDecoder::next() {
    if (state_ != State::within) return {};
    stream_->next_out = reinterpret_cast<Bytef*>(part_.get());
    stream_->avail_out = partBytes;
    const int result = inflate(stream_.get(), Z_NO_FLUSH);
    if (result == Z_MEM_ERROR) throw std::bad_alloc();
    if (result == Z_STREAM_END)
        state_ = stream_->avail_in == 0 ? State::ended : State::broken;
    else if (result != Z_OK && result != Z_BUF_ERROR)
        state_ = State::broken;
    return {part_.get(), partBytes - stream_->avail_out};
}

}  // namespace HalvardSling::internal
