#if canImport(Security)
import Foundation
import Security

/// Keeps binds in the Keychain, as one generic password. They do not leave the device, and are there
/// once it was unlocked after its start.
///
/// Not run where the library's tests run: there is no Keychain.
public struct KeychainBindStore: BindStore {
    private let service: String
    private let accessGroup: String?

    /// - Parameters:
    ///   - service: names the item among the application's, e.g. its bundle identifier
    ///   - accessGroup: of the applications that share it; nil: this one alone
    public init(service: String, accessGroup: String? = nil) {
        self.service = service
        self.accessGroup = accessGroup
    }

    /// What the Keychain has; nothing if there is no item, or one of another form.
    ///
    /// - Throws: `NSError` of `NSOSStatusErrorDomain` if the Keychain refuses, e.g. before the first
    ///   unlock.
    public func load() throws -> HeldBinds {
        var query = item
        query[kSecReturnData] = true
        query[kSecMatchLimit] = kSecMatchLimitOne
        var found: CFTypeRef?
        let status = SecItemCopyMatching(query as CFDictionary, &found)
        if status == errSecItemNotFound { return HeldBinds() }
        guard status == errSecSuccess else {
            throw NSError(domain: NSOSStatusErrorDomain, code: Int(status))
        }
        let kept = (found as? Data).flatMap { try? JSONDecoder().decode(Kept.self, from: $0) }
        return kept?.held ?? HeldBinds()
    }

    /// Replaces the item, or removes it if there are no binds. What the Keychain refuses is kept with
    /// the next change.
    public func save(_ held: HeldBinds) {
        if held.binds.isEmpty {
            SecItemDelete(item as CFDictionary)
            return
        }
        guard let data = try? JSONEncoder().encode(Kept(held)) else { return }
        let value: [CFString: Any] = [
            kSecValueData: data,
            kSecAttrAccessible: kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly,
        ]
        let status = SecItemUpdate(item as CFDictionary, value as CFDictionary)
        guard status == errSecItemNotFound else { return }
        let added = item.merging(value) { _, new in new }
        SecItemAdd(added as CFDictionary, nil)
    }

    private var item: [CFString: Any] {
        var item: [CFString: Any] = [
            kSecClass: kSecClassGenericPassword,
            kSecAttrService: service,
            kSecAttrAccount: "binds",
            kSecUseDataProtectionKeychain: true,
        ]
        if let accessGroup { item[kSecAttrAccessGroup] = accessGroup }
        return item
    }

    /// The form of the item.
    private struct Kept: Codable {
        struct Bind: Codable {
            var profileID: String
            var token: String
        }

        var binds: [Bind]
        var selectedProfileID: String?

        init(_ held: HeldBinds) {
            binds = held.binds.map { Bind(profileID: $0.profileID, token: $0.token) }
            selectedProfileID = held.selectedProfileID
        }

        var held: HeldBinds {
            HeldBinds(
                binds: binds.map { AnonymousBind(profileID: $0.profileID, token: $0.token) },
                selectedProfileID: selectedProfileID)
        }
    }
}
#endif
