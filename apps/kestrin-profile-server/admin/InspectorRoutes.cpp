#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include <kestrin-profile-server/admin/EmbeddedFile.hpp>
#include <kestrin-profile-server/admin/RouteTables.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::string_view page = "index.html";

/// What the page may load and do (https://www.w3.org/TR/CSP3): what comes from this service, and
/// nothing of it as markup or script that was made of texts.
constexpr std::string_view policy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self';"
    " frame-ancestors 'none'; base-uri 'none'; form-action 'none';"
    " require-trusted-types-for 'script'; trusted-types 'none'";

constexpr std::array<std::pair<std::string_view, std::string_view>, 4> contentTypes{{
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".svg", "image/svg+xml"},
}};

std::string_view contentTypeOf(std::string_view name) {
    const auto* const found = std::ranges::find_if(
        contentTypes, [&](const auto& each) { return name.ends_with(each.first); });
    return found == contentTypes.end() ? "application/octet-stream" : found->second;
}

Reply replyWith(const EmbeddedFile& file, const AdminCall& call) {
    Reply reply{200,
                {},
                {},
                {{"Cache-Control", "no-cache"},
                 {"ETag", std::string(file.entityTag)},
                 {"Content-Security-Policy", std::string(policy)},
                 {"X-Content-Type-Options", "nosniff"},
                 {"Referrer-Policy", "no-referrer"}}};
    if (call.ifNoneMatch == file.entityTag) {
        reply.status = 304;
        return reply;
    }
    reply.body = file.content;
    reply.contentType = contentTypeOf(file.name);
    return reply;
}

Reply fileNamed(std::string_view name, const AdminContext& context) {
    const auto files = inspectorFiles();
    const auto found = std::ranges::find(files, name, &EmbeddedFile::name);
    if (found != files.end()) return replyWith(*found, context.call);
    throw Problem(ProblemKind::unknownPath, "the inspector has no file '" + excerptOf(name) + "'");
}

Reply getPage(const AdminContext& context) {
    return fileNamed(page, context);
}

Reply getFile(const AdminContext& context) {
    return fileNamed(context.call.segments.front(), context);
}

/// The page's relative addresses need the slash.
Reply addSlash(const AdminContext& /*context*/) {
    return Reply{308, {}, {}, {{"Location", "admin/"}}};
}

constexpr std::array inspectorTable{
    AdminRoute{"GET",
               "/admin",
               "Leads to the inspector",
               AdminEffect::none,
               addSlash,
               {},
               AdminAccess::anyone},
    AdminRoute{"GET",
               "/admin/",
               "The inspector: a page that shows all this",
               AdminEffect::none,
               getPage,
               {},
               AdminAccess::anyone},
    AdminRoute{"GET",
               "/admin/{file}",
               "A file of the inspector",
               AdminEffect::none,
               getFile,
               {},
               AdminAccess::anyone},
};

}  // namespace

std::span<const AdminRoute> inspectorRoutes() {
    return inspectorTable;
}

}  // namespace KestrinProfileServer
