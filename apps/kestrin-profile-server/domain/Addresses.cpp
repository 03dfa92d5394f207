#include <boost/asio/ip/address.hpp>

#include <internal/ASCII.hpp>
#include <kestrin-profile-server/domain/Addresses.hpp>

namespace KestrinProfileServer {
namespace {

/// Where the port's colon is; npos if there is none.
std::size_t colonIn(std::string_view authority) {
    const std::size_t colon = authority.rfind(':');
    const std::size_t bracket = authority.rfind(']');
    const bool isOfAddress =
        bracket != std::string_view::npos && colon != std::string_view::npos && colon < bracket;
    return isOfAddress ? std::string_view::npos : colon;
}

}  // namespace

std::string hostIn(std::string_view authority) {
    authority = authority.substr(0, authority.find_first_of("/?#"));
    return std::string(authority.substr(0, colonIn(authority)));
}

std::string_view portIn(std::string_view authority, std::string_view usual) {
    const std::size_t colon = colonIn(authority);
    return colon == std::string_view::npos ? usual : authority.substr(colon + 1);
}

bool isLoopbackName(std::string_view host) {
    if (KestrinInternal::equalsIgnoringCase(host, "localhost")) return true;
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(std::string(host), error);
    return !error && address.is_loopback();
}

}  // namespace KestrinProfileServer
