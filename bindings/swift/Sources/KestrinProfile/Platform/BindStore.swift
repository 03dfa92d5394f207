import CKestrinProfile
import Foundation

/// Where binds are kept between runs of the application: the platform's key store.
public protocol BindStore: Sendable {
    /// What the store has. Called once, on the thread that sets the store.
    func load() throws -> HeldBinds

    /// Keeps all binds, in the place of those that were kept. Called after every change, one call at a
    /// time, on a queue of its own: what was handed over when the process is killed may not be kept
    /// yet.
    func save(_ held: HeldBinds)
}

/// Hands the states of the binds to a store, one after the other, and none that is old.
final class BindStoreHooks: Context, @unchecked Sendable {
    private let store: any BindStore
    private let loaded: HeldBinds
    private let queue = DispatchQueue(label: "kestrin-profile.bind-store")
    // Of the queue.
    private var latest: UInt64?

    private init(_ store: any BindStore, _ loaded: HeldBinds) {
        self.store = store
        self.loaded = loaded
    }

    static func view(of store: any BindStore, loaded: HeldBinds) -> kestrin_bind_store {
        var view = kestrin_bind_store()
        view.size = MemoryLayout<kestrin_bind_store>.stride
        view.context = BindStoreHooks(store, loaded).retained()
        view.load = { BindStoreHooks.at($0).load($1) }
        view.save = { context, binds, selected, revision in
            guard let binds = binds?.pointee else { return }
            let held = HeldBinds(
                binds: elements(binds.first, binds.count, binds.stride) {
                    AnonymousBind($0.pointee)
                },
                selectedProfileID: selected.string)
            BindStoreHooks.at(context).save(held, revision)
        }
        view.release_context = { BindStoreHooks.release($0) }
        return view
    }

    private func load(_ place: OpaquePointer?) {
        CallMemory.with { memory in
            for bind in loaded.binds {
                var view = bind.view(in: memory)
                // One that no request could carry is not there; the others are.
                _ = kestrin_loaded_binds_add(place, &view)
            }
            if let selected = loaded.selectedProfileID {
                _ = kestrin_loaded_binds_select(place, memory.text(selected))
            }
        }
    }

    private func save(_ held: HeldBinds, _ revision: UInt64) {
        queue.async {
            if let latest = self.latest, revision <= latest { return }
            self.latest = revision
            self.store.save(held)
        }
    }
}
