// A configuration's text, and the check against what the operations need.

#include <string>
#include <variant>
#include <vector>

#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinProfile/service/ConfigurationCheck.hpp>

#include "fuzz/Expect.hpp"

namespace {

using Fuzz::expect;
using KestrinConfigManager::ConfigurationProblem;

void describe(const std::vector<ConfigurationProblem>& problems) {
    for (const auto& problem : problems)
        expect(!problem.message.empty(), "a problem says what is wrong");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = Fuzz::textOf(data, size);
    const auto result = KestrinConfigManager::parseConfiguration(text);
    if (const auto* const problems = std::get_if<1>(&result)) {
        expect(!problems->empty(), "what is refused has a problem");
        describe(*problems);
        return 0;
    }
    const auto& configuration = std::get<0>(result);
    describe(KestrinProfile::checkConfiguration(configuration));
    return 0;
}
