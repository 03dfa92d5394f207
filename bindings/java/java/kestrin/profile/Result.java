package kestrin.profile;

import java.util.List;

/** What came of a request, as the interface for C has it; only one of the values is set. */
record Result(
        int outcome,
        KestrinException error,
        Response response,
        AnonymousBind bind,
        UserProfile list,
        OutboxState outboxState,
        List<User> users,
        List<AnonymousBind> binds,
        List<OutboxEntry> kept,
        String text,
        long number) {
    private static final int CANCELLED = 2;

    boolean isCancelled() {
        return outcome == CANCELLED;
    }

    User user() {
        return users.get(0);
    }

    OutboxEntry entry() {
        return kept.get(0);
    }

    HeldBinds heldBinds() {
        return new HeldBinds(binds, text);
    }

    static Result read(WireReader reader) {
        return new Result(
                reader.integer(),
                reader.optional(KestrinException::read),
                reader.optional(Response::read),
                reader.optional(AnonymousBind::read),
                reader.optional(UserProfile::read),
                reader.optional(OutboxState::read),
                reader.all(User::read),
                reader.all(AnonymousBind::read),
                reader.all(OutboxEntry::read),
                reader.text(),
                reader.number());
    }
}
