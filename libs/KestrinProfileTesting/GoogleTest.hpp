#pragma once

#include <gtest/gtest.h>

#include <KestrinProfileTesting/AdminClient.hpp>
#include <KestrinProfileTesting/Journal.hpp>

namespace KestrinProfileTesting {

/// What a GoogleTest says of the requests that came; a failure shows which were nearly right.
///
///     EXPECT_TRUE(came(service.admin(), Requests().method("PUT").item("v1"), exactly(1)));
[[nodiscard]] inline testing::AssertionResult came(const AdminClient& service,
                                                   const Requests& requests, Expected expected) {
    const Verification result = service.verified(requests, expected);
    return (result ? testing::AssertionSuccess() : testing::AssertionFailure()) << result.text;
}

}  // namespace KestrinProfileTesting
