import CKestrinProfile

/// Which requests are repeated, how often and when; docs/household.md says why the defaults are so.
public struct RetryPolicy: Sendable, Hashable {
    /// The first one included; 1 or less: once.
    public var maxAttempts: Int
    /// The limit of the first wait, which doubles.
    public var firstDelay: Duration
    /// Up to this.
    public var longestDelay: Duration
    /// Of a call that repeats its request.
    public var deadline: Duration
    /// After these any request is repeated: nothing of it was sent.
    public var unsentErrors: [SlingErrorKind]
    /// Whose requests are repeated after the next two.
    public var idempotentMethods: [String]
    /// Errors of transfers.
    public var errors: [SlingErrorKind]
    /// Statuses of replies.
    public var statuses: [Int]
    /// Statuses after which a request of any method is repeated.
    public var refusals: [Int]
    /// What bounds the repeats of all calls together.
    public var budget: Budget

    /// Repeats are paid for by successes.
    public struct Budget: Sendable, Hashable {
        /// What a request that succeeds adds.
        public var share: Double
        /// What there is at the start.
        public var atStart: Double
        /// What there may be.
        public var atMost: Double

        /// A budget.
        public init(share: Double, atStart: Double, atMost: Double) {
            self.share = share
            self.atStart = atStart
            self.atMost = atMost
        }
    }

    /// The library's own.
    public init() {
        var view = kestrin_retry_policy()
        _ = kestrin_retry_policy_init(&view, MemoryLayout<kestrin_retry_policy>.stride)
        maxAttempts = Int(view.max_attempts)
        firstDelay = .milliseconds(view.first_delay_ms)
        longestDelay = .milliseconds(view.longest_delay_ms)
        deadline = .milliseconds(view.deadline_ms)
        unsentErrors = Self.kinds(view.unsent_errors)
        idempotentMethods = elements(
            view.idempotent_methods.first, view.idempotent_methods.count
        ).map(\.text)
        errors = Self.kinds(view.errors)
        statuses = Self.numbers(view.statuses)
        refusals = Self.numbers(view.refusals)
        budget = Budget(
            share: view.budget_share, atStart: view.budget_at_start, atMost: view.budget_at_most)
    }

    /// A policy under which nothing is repeated.
    public static var never: RetryPolicy {
        var policy = RetryPolicy()
        policy.maxAttempts = 1
        return policy
    }

    func view(in memory: CallMemory) -> kestrin_retry_policy {
        var view = kestrin_retry_policy()
        view.size = MemoryLayout<kestrin_retry_policy>.stride
        view.max_attempts = Int32(clamping: maxAttempts)
        view.first_delay_ms = firstDelay.milliseconds
        view.longest_delay_ms = longestDelay.milliseconds
        view.deadline_ms = deadline.milliseconds
        view.unsent_errors = Self.view(of: unsentErrors.map(\.rawValue), memory)
        let methods = idempotentMethods.map { memory.text($0) }
        view.idempotent_methods = kestrin_texts(first: memory.array(methods), count: methods.count)
        view.errors = Self.view(of: errors.map(\.rawValue), memory)
        view.statuses = Self.view(of: statuses.map { Int32(clamping: $0) }, memory)
        view.refusals = Self.view(of: refusals.map { Int32(clamping: $0) }, memory)
        view.budget_share = budget.share
        view.budget_at_start = budget.atStart
        view.budget_at_most = budget.atMost
        return view
    }

    private static func kinds(_ view: kestrin_int32s) -> [SlingErrorKind] {
        elements(view.first, view.count).map { SlingErrorKind(rawValue: $0) ?? .unknown }
    }

    private static func numbers(_ view: kestrin_int32s) -> [Int] {
        elements(view.first, view.count).map { Int($0) }
    }

    private static func view(of numbers: [Int32], _ memory: CallMemory) -> kestrin_int32s {
        kestrin_int32s(first: memory.array(numbers), count: numbers.count)
    }
}
