#pragma once

#include <optional>

#include <KestrinProfile/model/ProfileOperation.hpp>

namespace KestrinProfile::internal {

/// What the service expects of an operation's request. The one table from which the parameter
/// records answer.
struct OperationRules {
    /// What the body is made of.
    enum class Body {
        none,
        type,          ///< the content kind; no body without one
        watchedVideo,  ///< completion, content kind and progress, whichever are present
        elements,      ///< entries; no body without a list of them
        user,          ///< a user; no body without one
    };

    /// What has to be present beside the bind.
    enum class Need {
        nothing,
        userName,  ///< and not empty
        video,
        watchedVideo,  ///< a video, and a progress that is not negative
        show,
        elements,  ///< at least one
        user,
        identifiedUser,  ///< with a profile identifier, which the URL then carries, not the bind's
    };

    ProfileOperation operation;
    Body body;
    Need need;
};

/// The rules of an operation; of an absent one, that there is no body and nothing is needed.
[[nodiscard]] const OperationRules& rules(std::optional<ProfileOperation> operation);

}  // namespace KestrinProfile::internal
