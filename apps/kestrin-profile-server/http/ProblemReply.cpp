#include <array>
#include <string>

#include <boost/json.hpp>

#include <internal/Table.hpp>
#include <kestrin-profile-server/http/Reply.hpp>

namespace KestrinProfileServer {
namespace {

struct ProblemRow {
    ProblemKind kind;
    unsigned status;
    std::string_view name;
    std::string_view title;
};

constexpr std::array<ProblemRow, 40> problemTable{{
    {ProblemKind::malformedRequest, 400, "malformed-request", "The request is not HTTP"},
    {ProblemKind::missingSentinel, 400, "missing-sentinel", "The query does not end with v=1"},
    {ProblemKind::unknownParameter, 400, "unknown-parameter", "Unknown query parameter"},
    {ProblemKind::repeatedParameter, 400, "repeated-parameter", "Repeated query parameter"},
    {ProblemKind::missingParameter, 400, "missing-parameter", "Missing query parameter"},
    {ProblemKind::malformedParameter, 400, "malformed-parameter", "Malformed query parameter"},
    {ProblemKind::repeatedHeader, 400, "repeated-header", "Repeated header"},
    {ProblemKind::missingHeader, 400, "missing-header", "Missing header"},
    {ProblemKind::unexpectedBody, 400, "unexpected-body", "This operation takes no body"},
    {ProblemKind::missingBody, 400, "missing-body", "This operation needs a body"},
    {ProblemKind::malformedJSON, 400, "malformed-json", "The body is not JSON"},
    {ProblemKind::repeatedKey, 400, "repeated-key", "Repeated key in the body"},
    {ProblemKind::zeroCharacter, 400, "zero-character", "A text has a zero character"},
    {ProblemKind::secretRequired, 401, "secret-required", "The household secret is required"},
    {ProblemKind::tokenRequired, 401, "token-required", "A token is required"},
    {ProblemKind::tokenRefused, 403, "token-refused", "The token is refused"},
    {ProblemKind::profileRefused, 403, "profile-refused", "Not allowed for this profile"},
    {ProblemKind::profileBlocked, 403, "profile-blocked", "The profile is blocked"},
    {ProblemKind::unknownPath, 404, "unknown-path", "Unknown path"},
    {ProblemKind::unknownProfile, 404, "unknown-profile", "Unknown profile"},
    {ProblemKind::methodNotAllowed, 405, "method-not-allowed", "Method not allowed"},
    {ProblemKind::tooManyProfiles, 409, "too-many-profiles", "The household is full"},
    {ProblemKind::parentProfile, 409, "parent-profile", "The parent profile stays"},
    {ProblemKind::bodyTooLarge, 413, "body-too-large", "The body is too large"},
    {ProblemKind::unsupportedMediaType, 415, "unsupported-media-type", "The body must be JSON"},
    {ProblemKind::invalidBody, 422, "invalid-body", "The body has unexpected content"},
    {ProblemKind::invalidName, 422, "invalid-name", "The profile name cannot be used"},
    {ProblemKind::invalidEntry, 422, "invalid-entry", "The entry cannot be stored"},
    {ProblemKind::headersTooLarge, 431, "headers-too-large", "The headers are too large"},
    {ProblemKind::internal, 500, "internal", "The service failed"},
    {ProblemKind::unavailable, 503, "unavailable", "The service cannot write now"},
    {ProblemKind::busy, 503, "busy", "The service has too much to do"},
    {ProblemKind::invalidRequest, 400, "invalid-request", "The request has unexpected content"},
    {ProblemKind::adminSecretRequired, 401, "admin-secret-required",
     "The admin interface's secret is required"},
    {ProblemKind::originRefused, 403, "origin-refused", "Not allowed from there"},
    {ProblemKind::unknownNamespace, 404, "unknown-namespace", "Unknown namespace"},
    {ProblemKind::unknownItem, 404, "unknown-item", "There is no such thing"},
    {ProblemKind::taken, 409, "taken", "The name is taken"},
    {ProblemKind::tooManyNamespaces, 409, "too-many-namespaces", "There are too many namespaces"},
    {ProblemKind::httpsRequired, 400, "https-required", "This port speaks HTTPS"},
}};

static_assert(KestrinInternal::isInOrder(problemTable, &ProblemRow::kind));

/// What went wrong by itself goes away by itself, soon.
constexpr unsigned serviceUnavailable = 503;
constexpr const char* secondsUntilRetry = "1";

HeaderLines headersOf(const Problem& problem, unsigned status) {
    HeaderLines headers = problem.headers();
    if (status == serviceUnavailable) headers.emplace_back("Retry-After", secondsUntilRetry);
    return headers;
}

}  // namespace

Reply replyTo(const Problem& problem, std::string_view instance) {
    const ProblemRow& row = KestrinInternal::rowOf(problemTable, problem.kind());
    const boost::json::object document{{"type", problemType(row.name)},
                                       {"title", row.title},
                                       {"status", row.status},
                                       {"detail", problem.what()},
                                       {"instance", instance}};
    return Reply{.status = row.status,
                 .body = boost::json::serialize(document),
                 .contentType = "application/problem+json",
                 .headers = headersOf(problem, row.status),
                 .problem = row.name};
}

std::string problemType(std::string_view name) {
    return "urn:kestrin-profile:problem:" + std::string(name);
}

void addRequestID(Reply& reply, std::string_view requestID) {
    if (reply.problem.empty()) return;
    // Before the brace that ends the document.
    reply.body.insert(reply.body.size() - 1, ",\"requestId\":" + boost::json::serialize(requestID));
}

}  // namespace KestrinProfileServer
