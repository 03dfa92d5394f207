package kestrin.profile;

/** The library's numbers as enumerations whose last case is what is not known. */
final class Codes {
    private Codes() {}

    static <E extends Enum<E>> E of(Class<E> type, int code) {
        E[] cases = type.getEnumConstants();
        int unknown = cases.length - 1;
        return cases[code >= 0 && code < unknown ? code : unknown];
    }
}
