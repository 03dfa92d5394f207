#pragma once

#include <KestrinC/internal/hooks/Owned.hpp>
#include <KestrinC/internal/records/Fields.hpp>

namespace KestrinC::internal {

/// A structure of an application's functions, and the context that the library has taken over.
template <class Structure>
struct Hooks {
    Structure functions{};
    Owned owned;

    /// Takes the hooks over. Whatever is wrong with them but their size, their context is released.
    /// @param required  the functions that may not be null
    template <class... Function>
    [[nodiscard]] static Hooks taken(const Structure* given, const char* name,
                                     Function Structure::*... required) {
        const Path path(name);
        Hooks hooks;
        hooks.functions = knownPart(given, path);
        hooks.owned = Owned(hooks.functions.context, hooks.functions.release_context);
        requireAllKnown(given, path);
        const bool isComplete = (static_cast<bool>(hooks.functions.*required) && ...);
        if (!isComplete) path.refuse("lacks a function");
        return hooks;
    }

    [[nodiscard]] void* context() const noexcept { return owned.context(); }
};

}  // namespace KestrinC::internal
