#pragma once

/// @file
/// Declares the namespace of the subset; every header that opens it includes this first.

/// Source-compatible subset of RxCpp.
namespace rxcpp {

/// Everything lives here, under a name that only the linker sees. The tag makes even the names of
/// functions that merely return one of these types differ from those compiled with RxCpp.
inline namespace [[gnu::abi_tag("rxcpp_bundled")]] bundled {}

}  // namespace rxcpp
