#pragma once

namespace TestSupport {

/// Opens a private member to a test, so that no header has to name the test: the names in an
/// explicit instantiation are not checked for access. `Tag`, a type of this namespace, says what
/// the member is and declares the function that returns it:
///
///     struct Name { using Member = Type Class::*; friend Member opened(Name); };
///     template struct Opens<Name, &Class::name_>;
///     … object.*opened(Name()) …
template <class Tag, typename Tag::Member Opened>
struct Opens {
    friend typename Tag::Member opened(Tag /*tag*/) { return Opened; }
};

}  // namespace TestSupport
