/// An object that the library has as the context of a completion or hook, until it releases it.
protocol Context: AnyObject, Sendable {}

extension Context {
    /// Hands it over.
    func retained() -> UnsafeMutableRawPointer {
        Unmanaged.passRetained(self).toOpaque()
    }

    /// The one that was handed over.
    static func at(_ context: UnsafeMutableRawPointer?) -> Self {
        guard let context else { preconditionFailure("the library gave back no context") }
        return Unmanaged<Self>.fromOpaque(context).takeUnretainedValue()
    }

    /// Takes it back.
    static func release(_ context: UnsafeMutableRawPointer?) {
        guard let context else { return }
        Unmanaged<Self>.fromOpaque(context).release()
    }
}
