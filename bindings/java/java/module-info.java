/** The client library of a household's personalization service. */
module kestrin.profile {
    exports kestrin.profile;
}
