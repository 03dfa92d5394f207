// A process with little address space: replies that announce more than it has, or bring it.

#include <cstdio>
#include <string>

#include <gmock/gmock.h>

#include "support/Program.hpp"
#include "support/RawServer.hpp"

using namespace TestSupport;

namespace {

constexpr std::size_t announced = std::size_t{16} << 20U;

/// What a program of so little space makes of 64 such replies.
std::string endsWith(const RawServer& server) {
    Program program({LIMITED_PROGRAM, server.url("")});
    EXPECT_EQ(program.wait(), 0) << program.errors();
    return program.output();
}

/// Answers "/small", and everything else with so much of what it announces.
RawServer serverOf(std::size_t sent) {
    return RawServer([body = std::string(sent, 'x')](RawConnection& connection) {
        while (const auto request = connection.readRequest()) {
            if (request->find("/small ") != std::string::npos) {
                connection.send(httpReply(200, "small"));
                continue;
            }
            // None ends before all have begun.
            if (!connection.awaitRequests(64)) return;
            connection.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(announced) +
                            "\r\n\r\n");
            connection.send(body);
            if (body.size() < announced) return;
        }
    });
}

TEST(AddressSpace, IsNotTakenForWhatIsOnlyAnnounced) {
    const RawServer server = serverOf(1000);
    EXPECT_EQ(endsWith(server), "0 replies, 64 lost, 0 without memory, 0 others; then a reply\n");
}

TEST(AddressSpace, MayRunOutWithoutEndingTheProcess) {
    const RawServer server = serverOf(announced);
    std::size_t replies = 0;
    std::size_t lost = 0;
    std::size_t lacking = 0;
    std::size_t others = 0;
    const std::string ends = endsWith(server);
    ASSERT_EQ(std::sscanf(ends.c_str(), "%zu replies, %zu lost, %zu without memory, %zu others",
                          &replies, &lost, &lacking, &others),
              4)
        << ends;
    EXPECT_GT(replies, 0U) << ends;
    EXPECT_GT(lacking, 0U) << ends;
    EXPECT_EQ(lost + others, 0U) << ends;
    EXPECT_EQ(replies + lacking, 64U) << ends;
    EXPECT_THAT(ends, testing::HasSubstr("then a reply"));
}

}  // namespace
