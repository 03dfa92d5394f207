import CKestrinProfile
import Foundation

/// What the process has once: the configuration, the binds and what sends requests. A function throws
/// ``KestrinError`` if what it gets is not what it asks for.
public enum ConfigurationManager {
    /// The library's version, e.g. "0.1.0".
    public static var version: String { String(cString: kestrin_version()) }

    /// Sets the configuration. If it has problems the former one stays, and the error's message has
    /// them, a line each.
    ///
    /// - Parameter json: the text of a configuration file (docs/configuration.md)
    public static func configure(_ json: String) throws {
        try check { kestrin_configure($0.text(json)) }
    }

    /// Forgets the configuration; binds stay.
    public static func removeConfiguration() throws {
        try KestrinError.check(kestrin_remove_configuration())
    }

    /// Stores a bind that the application has. The first one that is stored selects its profile.
    public static func storeBind(_ bind: AnonymousBind) throws {
        try check { memory in
            var view = bind.view(in: memory)
            return kestrin_store_bind(&view)
        }
    }

    /// Selects the profile whose bind plain operations use if they are given none.
    public static func selectProfile(_ profileID: String) throws {
        try check { kestrin_select_profile($0.text(profileID)) }
    }

    /// Forgets all binds that are held, also those in the bind store.
    public static func dropBinds() throws {
        try KestrinError.check(kestrin_drop_binds())
    }

    /// All binds that are held.
    public static func heldBinds() throws -> HeldBinds {
        try Answer.made { kestrin_held_binds($0) }.heldBinds()
    }

    /// Binds are kept there from now on, and what it holds replaces what is held. Calls
    /// ``BindStore/load()`` on this thread, and throws what that throws; then nothing changes.
    ///
    /// - Parameter store: nil: in memory only, as at the start
    public static func setBindStore(_ store: (any BindStore)?) throws {
        guard let store else { return try KestrinError.check(kestrin_set_bind_store(nil)) }
        var view = BindStoreHooks.view(of: store, loaded: try store.load())
        try KestrinError.check(kestrin_set_bind_store(&view))
    }

    /// Sends all requests made from now on with this. What the former one has open is cancelled, unless
    /// requests still use it.
    ///
    /// - Parameter transport: nil: the built-in one (libcurl)
    public static func setTransport(_ transport: (any Transport)?) throws {
        guard let transport else { return try KestrinError.check(kestrin_set_transport(nil)) }
        var view = TransportHooks.view(of: transport)
        try KestrinError.check(kestrin_set_transport(&view))
    }

    private static func check(_ call: (CallMemory) -> kestrin_status) throws {
        try KestrinError.check(CallMemory.with(call))
    }
}
