#pragma once

#include <cstddef>

#include <boost/json/object.hpp>

#include <kestrin-profile-server/Authorisation.hpp>
#include <kestrin-profile-server/Database.hpp>
#include <kestrin-profile-server/Reply.hpp>
#include <kestrin-profile-server/Tokens.hpp>

namespace KestrinProfileServer {

/// How much a household may store.
struct Limits {
    std::size_t maxProfiles = 5;
    std::size_t maxListSize = 500;
};

/// Everything that an operation works with, after all the general rules have been checked.
struct HandlerContext {
    Connection& connection;
    const Route& route;
    const QueryValues& query;
    const boost::json::object& body;
    const Authorised& authorised;
    const Tokens& tokens;
    const Limits& limits;
    Milliseconds now;
};

/// An operation: answers, or throws a Problem.
using Handler = Reply (*)(const HandlerContext&);

Reply bindAnonymously(const HandlerContext& context);
Reply validateName(const HandlerContext& context);
Reply createProfile(const HandlerContext& context);
Reply getProfiles(const HandlerContext& context);
Reply editProfile(const HandlerContext& context);
Reply deleteProfile(const HandlerContext& context);
Reply getList(const HandlerContext& context);
Reply getEntry(const HandlerContext& context);
Reply addEntry(const HandlerContext& context);
Reply addEntries(const HandlerContext& context);
Reply deleteEntry(const HandlerContext& context);
Reply clearList(const HandlerContext& context);

}  // namespace KestrinProfileServer
