#pragma once

#include <optional>
#include <utility>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/tcp_stream.hpp>

namespace KestrinProfileServer {

/// A connection to a client, with TLS or without, as Asio and Beast read and write it.
class ClientStream {
  public:
    using executor_type = boost::beast::tcp_stream::executor_type;
    using Secure = boost::asio::ssl::stream<boost::beast::tcp_stream&>;

    /// @param context  of TLS, living as long as this; null: there is no TLS
    ClientStream(boost::asio::ip::tcp::socket socket, boost::asio::ssl::context* context)
        : plain_(std::move(socket)) {
        if (context != nullptr) secure_.emplace(plain_, *context);
    }

    [[nodiscard]] boost::beast::tcp_stream& plain() { return plain_; }
    [[nodiscard]] boost::asio::ip::tcp::socket& socket() { return plain_.socket(); }
    [[nodiscard]] bool isSecure() const { return secure_.has_value(); }
    /// Only if it is secure.
    [[nodiscard]] Secure& secure() { return *secure_; }
    /// Goes on without TLS, before anything was read or written with it.
    void goOnInCleartext() { secure_.reset(); }

    // NOLINTBEGIN(readability-identifier-naming): Asio's names for what a stream has.
    [[nodiscard]] executor_type get_executor() { return plain_.get_executor(); }

    template <class Duration>
    void expires_after(Duration time) {
        plain_.expires_after(time);
    }
    void expires_never() { plain_.expires_never(); }

    template <class Buffers, class Handler>
    void async_read_some(const Buffers& buffers, Handler&& handler) {
        secure_ ? secure_->async_read_some(buffers, std::forward<Handler>(handler))
                : plain_.async_read_some(buffers, std::forward<Handler>(handler));
    }

    template <class Buffers, class Handler>
    void async_write_some(const Buffers& buffers, Handler&& handler) {
        secure_ ? secure_->async_write_some(buffers, std::forward<Handler>(handler))
                : plain_.async_write_some(buffers, std::forward<Handler>(handler));
    }
    // NOLINTEND(readability-identifier-naming)

  private:
    boost::beast::tcp_stream plain_;
    std::optional<Secure> secure_;
};

}  // namespace KestrinProfileServer
