// rixstats for C++17: types that release themselves, ranges and std::error_code over the calls of rixstats.h and
// rixstats_ext.h. All of it is inline: there is nothing to link with but -lrixstats, and the C calls are all that it
// shares with the library. No exception is needed or thrown, but for std::bad_alloc where a std::string is filled.
//
//     rixstats::connection gateway;
//     gateway.time_limit(std::chrono::seconds(5));
//     if (std::error_code failure = gateway.open("gw7", 2980)) return report(failure.message());
//     auto workers = gateway.statistics_in_groups("Workers");
//     for (const rixstats::statistic &s : workers)
//         if (s.present()) std::cout << s.id << " = " << s.value << '\n';
//     if (workers.status()) return report(workers.status().message()); // the query failed, or the walk
//
// The two headers are the whole truth: what they say of arguments, codes, threads, forks and waiting holds here. In
// short:
//
//  1. Codes. Every call that can fail returns a std::error_code of rixstats::category(), or an answer that carries one
//     in status(). They compare with the codes of the headers (failure == STAPI_COMMS_FAILURE) and, where the system
//     has a word for it, with std::errc (failure == std::errc::timed_out). last_failure() tells more of the reason.
//  2. Lifetime. The texts of items are views into the result set of the connection: they live until the next query on
//     it, or its end, and so does the answer itself. answer::copy_to() makes a result_set that lives on, and whose
//     views live as long as it does.
//  3. Threads. Only the thread that opened a connection may query it and walk its answers; a result_set may be walked
//     by any thread, one at a time. No object of this header may be used by two threads at once: a watchdog that ends
//     another thread's query is given handle() beforehand and calls closeGatewayConnection() on that.
//  4. Ends. A query that ends its connection leaves the connection object closed: is_open() tells, open() starts anew.
//     An object that goes says good-bye to the gateway and does not wait for an answer; close() waits.
//  5. Waiting. connection::time_limit() says how long each call of that connection may take. Without one the limit of
//     the calling thread holds, as rixSetTimeLimit() has set it; a thread has none unless it asks for one.
//  6. Forks. A child process cannot query a connection object that it inherits. Closing it there, or letting it go,
//     leaves the parent's connection as it is.
#ifndef RIXSTATS_HPP
#define RIXSTATS_HPP

#include "rixstats_ext.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>

// The codes of the headers are std::error_codes wherever one is wanted.
template <>
struct std::is_error_code_enum<RIX_ReturnCode> : std::true_type
{
};
template <>
struct std::is_error_code_enum<RIX_ExtReturnCode> : std::true_type
{
};

namespace rixstats {

// ---- Codes -----------------------------------------------------------------------------------------------------

namespace detail {

class code_category final : public std::error_category
{
public:
    const char *name() const noexcept override { return "rixstats"; }

    std::string message(int code) const override
    {
        return std::string(rixCodeText(code)) + " (" + rixCodeName(code) + ", " + std::to_string(code) + ")";
    }

    std::error_condition default_error_condition(int code) const noexcept override
    {
        if (code == STAPI_CONNECTION_REFUSED) return std::errc::connection_refused;
        if (code == STAPI_CONNECT_TIMED_OUT || code == STAPI_TIME_LIMIT_REACHED) return std::errc::timed_out;
        if (code == STAPI_NETWORK_UNREACHABLE) return std::errc::network_unreachable;
        if (code == STAPI_NO_MEMORY) return std::errc::not_enough_memory;
        return {code, *this};
    }
};

} // namespace detail

// Of the library's codes. message() tells text, name and number: "port outside 1..65535 (STAPI_BAD_PORT, -107)".
// Visible even where all else is hidden: codes of several shared libraries compare equal only if this is one object.
RIXSTATS_API inline const std::error_category &category() noexcept
{
    static const detail::code_category instance;
    return instance;
}

inline std::error_code error(int code) noexcept
{
    return {code, category()};
}

// The name of a code: "STAPI_BAD_PORT".
inline const char *code_name(int code) noexcept
{
    return rixCodeName(code);
}
inline const char *code_name(const std::error_code &code) noexcept
{
    return code_name(code.value());
}

// Of the calling thread's last call that failed: at which step, with which errno and codes of the gateway.
// Ask before a connection goes out of scope: once close_all() has closed it, its destructor's close fails, too.
inline RIX_Failure_t last_failure() noexcept
{
    RIX_Failure_t failure = {};
    failure.size = sizeof failure;
    rixGetLastFailure(&failure);
    return failure;
}

// A zero-terminated text that a call is given: a literal or a std::string. Null is passed on, and refused by the call.
class text
{
public:
    text(const char *zero_terminated) noexcept : start(zero_terminated) {}
    text(const std::string &string) noexcept : start(string.c_str()) {}
    const char *c_str() const noexcept { return start; }

private:
    const char *start;
};

// ---- Items -----------------------------------------------------------------------------------------------------

// What both kinds of item tell of the element of the query that they answer.
struct element_item
{
    std::string_view element; // as it stands in the query
    int element_code = 0;     // the gateway's result for it
    std::string_view id;

    // An element that failed, and one that has nothing to tell, give one item without an identifier.
    bool failed() const noexcept { return element_code < 0; }
    bool present() const noexcept { return !id.empty(); }
};

struct identifier : element_item
{
};

struct statistic : element_item
{
    std::string_view value; // a text; counters and gauges come as decimal digits
};

namespace detail {

inline std::string_view view(const char *start, int length) noexcept
{
    return {start, static_cast<std::size_t>(length)};
}

// The records are fresh for each item, as an element that failed leaves the fields of its item as they were.
inline int fetch(RIX_ResultSetToken_t set, bool first, identifier &item) noexcept
{
    RIX_IdData_t data = {};
    const int code = first ? getFirstId(set, &data) : getNextId(set, &data);
    item.element = view(data.queryElementPtr, data.queryElementLen);
    item.element_code = data.queryElementRC;
    item.id = view(data.idPtr, data.idLen);
    return code;
}

inline int fetch(RIX_ResultSetToken_t set, bool first, statistic &item) noexcept
{
    RIX_StatData_t data = {};
    const int code = first ? getFirstStat(set, &data) : getNextStat(set, &data);
    item.element = view(data.queryElementPtr, data.queryElementLen);
    item.element_code = data.queryElementRC;
    item.id = view(data.statIdPtr, data.statIdLen);
    item.value = view(data.statValuePtr, data.statValueLen);
    return code;
}

// What i++ gives: *i++ is the item that i stood at.
template <typename Value>
struct passed
{
    Value value;
    const Value &operator*() const noexcept { return value; }
};

// One walk over a result set, which is where the library keeps the read position.
template <typename Item>
struct walk
{
    RIX_ResultSetToken_t set; // null: there is nothing to walk, and code says why
    int code;
    Item item = {};

    void start() noexcept
    {
        if (set != nullptr) code = fetch(set, true, item);
    }
    void next() noexcept { code = fetch(set, false, item); }
    bool more() const noexcept { return code == STAPI_OK; }
    // Each element of an answer has its own place in the result set, also one that the query names twice.
    bool within(const char *element) const noexcept { return more() && item.element.data() == element; }
};

} // namespace detail

// ---- Walking ---------------------------------------------------------------------------------------------------

// Over all items of an answer, or over those of one element. Single pass; all iterators of an answer move together.
template <typename Item>
class item_iterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Item;
    using difference_type = std::ptrdiff_t;
    using pointer = const Item *;
    using reference = const Item &;

    item_iterator() noexcept = default; // the end
    item_iterator(detail::walk<Item> &started, const char *only_element) noexcept
        : walk(&started), element(only_element)
    {
        stop_at_end();
    }

    reference operator*() const noexcept { return walk->item; }
    pointer operator->() const noexcept { return &walk->item; }
    item_iterator &operator++() noexcept
    {
        walk->next();
        stop_at_end();
        return *this;
    }
    detail::passed<Item> operator++(int) noexcept
    {
        const detail::passed<Item> item = {**this};
        ++*this;
        return item;
    }
    friend bool operator==(const item_iterator &a, const item_iterator &b) noexcept { return a.walk == b.walk; }
    friend bool operator!=(const item_iterator &a, const item_iterator &b) noexcept { return !(a == b); }

private:
    void stop_at_end() noexcept
    {
        const bool on = element == nullptr ? walk->more() : walk->within(element) && walk->item.present();
        if (!on) walk = nullptr;
    }

    detail::walk<Item> *walk = nullptr;
    const char *element = nullptr; // null: all
};

// The answer to one element of a query: a range over its items, empty for an element that failed or has none.
template <typename Item>
class response_group
{
public:
    response_group() noexcept = default;
    explicit response_group(detail::walk<Item> &started) noexcept
        : walk(&started), name(started.item.element), result(started.item.element_code)
    {
    }

    std::string_view element() const noexcept { return name; }
    int code() const noexcept { return result; } // the gateway's result for the element
    bool failed() const noexcept { return result < 0; }

    item_iterator<Item> begin() const noexcept // once: it does not start over
    {
        return walk == nullptr ? end() : item_iterator<Item>(*walk, name.data());
    }
    item_iterator<Item> end() const noexcept { return {}; }

private:
    detail::walk<Item> *walk = nullptr;
    std::string_view name;
    int result = 0;
};

// Over the groups of an answer. What is left of a group when the next one is asked for is skipped.
template <typename Item>
class group_iterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = response_group<Item>;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type *;
    using reference = const value_type &;

    group_iterator() noexcept = default; // the end
    explicit group_iterator(detail::walk<Item> &started) noexcept : walk(&started) { take_group(); }

    reference operator*() const noexcept { return group; }
    pointer operator->() const noexcept { return &group; }
    group_iterator &operator++() noexcept
    {
        while (walk->within(group.element().data()))
            walk->next();
        take_group();
        return *this;
    }
    detail::passed<value_type> operator++(int) noexcept // what it gives has no items any more
    {
        const detail::passed<value_type> passed_group = {group};
        ++*this;
        return passed_group;
    }
    friend bool operator==(const group_iterator &a, const group_iterator &b) noexcept { return a.walk == b.walk; }
    friend bool operator!=(const group_iterator &a, const group_iterator &b) noexcept { return !(a == b); }

private:
    void take_group() noexcept
    {
        if (walk->more())
            group = value_type(*walk);
        else
            walk = nullptr;
    }

    detail::walk<Item> *walk = nullptr;
    value_type group;
};

class result_set;

// What a query gave, or what a result_set holds: a range over its items, and by groups() over its elements. Single
// pass, but begin() starts over. The walk's place is kept in the result set, so only one walk goes on at a time.
template <typename Item>
class answer
{
public:
    class group_range
    {
    public:
        explicit group_range(answer &of_answer) noexcept : walk(&of_answer.walk) {}
        group_iterator<Item> begin() const noexcept
        {
            walk->start();
            return group_iterator<Item>(*walk);
        }
        group_iterator<Item> end() const noexcept { return {}; }

    private:
        detail::walk<Item> *walk;
    };

    answer(RIX_ResultSetToken_t set, int code) noexcept : walk{code == STAPI_OK ? set : nullptr, code} {}
    answer(const answer &) = delete; // its iterators point to it
    answer &operator=(const answer &) = delete;

    // The query's failure, after which the range is empty, or the failure that ended the walk before its end.
    std::error_code status() const noexcept { return error(walk.code == STAPI_END_OF_RESULTS ? STAPI_OK : walk.code); }

    // Both need an answer that has a name, or a range-for's: iterators and groups point to it.
    item_iterator<Item> begin() &noexcept
    {
        walk.start();
        return {walk, nullptr};
    }
    item_iterator<Item> end() const noexcept { return {}; }
    group_range groups() &noexcept { return group_range(*this); }

    // Makes a copy that outlives the next query and the connection.
    [[nodiscard]] std::error_code copy_to(result_set &copy) const noexcept;

    // Joins the identifiers to a text for the queries by identifier, without those that would bring it to 32,000 bytes.
    // The walk stands at its end afterwards.
    [[nodiscard]] std::error_code id_query(std::string &query) const
    {
        if (walk.set == nullptr) return status();
        char *joined = nullptr;
        const int code = getIdQuery(walk.set, &joined);
        if (code == STAPI_OK) query = joined;
        return error(code);
    }

    // Writes a storage dump to the trace destination.
    std::error_code dump() const noexcept { return walk.set == nullptr ? status() : error(dumpResultSet(walk.set)); }

    RIX_ResultSetToken_t handle() const noexcept { return walk.set; } // null if the query failed

private:
    detail::walk<Item> walk;
};

// A copy of an answer, made by answer::copy_to(), that is the program's own.
class result_set
{
public:
    result_set() noexcept = default;
    result_set(result_set &&other) noexcept : token(std::exchange(other.token, nullptr)) {}
    result_set &operator=(result_set &&other) noexcept
    {
        std::swap(token, other.token); // the other one releases what was here
        return *this;
    }
    ~result_set()
    {
        if (token != nullptr) freeResultSet(&token);
    }

    explicit operator bool() const noexcept { return token != nullptr; }

    // Each fails with STAPI_UNRECOGNISED_CONTENT in status() where the copy holds the other kind.
    answer<identifier> ids() const noexcept { return {token, code()}; }
    answer<statistic> statistics() const noexcept { return {token, code()}; }

    RIX_ResultSetToken_t handle() const noexcept { return token; }

private:
    template <typename Item>
    friend class answer;

    int code() const noexcept { return token == nullptr ? STAPI_NULL_RESULT_SET_TOKEN : STAPI_OK; }

    RIX_ResultSetToken_t token = nullptr;
};

template <typename Item>
std::error_code answer<Item>::copy_to(result_set &copy) const noexcept
{
    if (walk.set == nullptr) return status();
    result_set made; // a failure may leave an empty copy, which goes with this
    const int code = copyResultSet(walk.set, &made.token);
    if (code == STAPI_OK) copy = std::move(made);
    return error(code);
}

// ---- Connections -----------------------------------------------------------------------------------------------

namespace detail {

// The time limit of the calling thread, for as long as this lives. 0: the thread's own stays.
class scoped_time_limit
{
public:
    explicit scoped_time_limit(int milliseconds) noexcept
        : changed(milliseconds != 0 && rixGetTimeLimit(&before) == STAPI_OK)
    {
        if (changed) rixSetTimeLimit(milliseconds);
    }
    ~scoped_time_limit()
    {
        if (changed) rixSetTimeLimit(before);
    }
    scoped_time_limit(const scoped_time_limit &) = delete;
    scoped_time_limit &operator=(const scoped_time_limit &) = delete;

private:
    int before = 0;
    bool changed;
};

} // namespace detail

// One connection to a gateway, closed when the object goes.
class connection
{
public:
    connection() noexcept = default;
    connection(connection &&other) noexcept : current(std::exchange(other.current, {})), limit(other.limit) {}
    connection &operator=(connection &&other) noexcept
    {
        if (this == &other) return *this;
        leave();
        current = std::exchange(other.current, {});
        limit = other.limit;
        return *this;
    }
    ~connection() { leave(); }

    // How long each call of this connection may take as a whole: open(), a query, close(). Holds for the calls to come,
    // also where the connection is opened again. 0, as at the start: the limit of the calling thread holds.
    std::error_code time_limit(std::chrono::milliseconds longest) noexcept
    {
        if (longest.count() < 0) return error(STAPI_BAD_TIME_LIMIT);
        using count = std::chrono::milliseconds::rep;
        limit = static_cast<int>(std::min<count>(longest.count(), std::numeric_limits<int>::max()));
        return {};
    }
    std::chrono::milliseconds time_limit() const noexcept { return std::chrono::milliseconds(limit); }

    // Leaves what is open, as the end of the object does, and opens a connection that belongs to the calling thread.
    [[nodiscard]] std::error_code open(text host, int port) noexcept
    {
        leave();
        const detail::scoped_time_limit limited(limit);
        return error(openRemoteGatewayConnection(host.c_str(), port, &current.token, &current.version));
    }
    [[nodiscard]] std::error_code open(int port) noexcept // on this host
    {
        leave();
        const detail::scoped_time_limit limited(limit);
        return error(openGatewayConnection(port, &current.token, &current.version));
    }

    // Says good-bye to the gateway and waits for its answer. Success also where nothing is open.
    std::error_code close() noexcept
    {
        opened last = std::exchange(current, {});
        if (last.token == nullptr) return {};
        const detail::scoped_time_limit limited(limit);
        return error(closeGatewayConnection(&last.token));
    }

    // Gives the handle up without closing: for a connection that was closed by its handle, or by close_all().
    RIX_GatewayToken_t forget() noexcept { return std::exchange(current, {}).token; }

    bool is_open() const noexcept { return current.token != nullptr; }
    RIX_GatewayToken_t handle() const noexcept { return current.token; }

    // Of the statistics protocol, as the gateway told it: lives as long as the connection. Empty if there is none.
    std::string_view protocol_version() const noexcept
    {
        return current.version == nullptr ? std::string_view() : current.version;
    }

    // The six queries; each makes what earlier answers of this connection handed out invalid. Elements are parted by
    // colons: "Workers:Storage". An empty text asks for all.
    answer<identifier> group_ids() noexcept { return query<identifier>(getResourceGroupIds); }
    answer<identifier> ids() noexcept { return query<identifier>(getStatIds); }
    answer<identifier> ids_in_groups(text groups) noexcept
    {
        return query<identifier>(getStatIdsByStatGroupId, groups.c_str());
    }
    answer<statistic> statistics() noexcept { return query<statistic>(getStats); }
    answer<statistic> statistics_by_id(text ids) noexcept { return query<statistic>(getStatsByStatId, ids.c_str()); }
    answer<statistic> statistics_in_groups(text groups) noexcept
    {
        return query<statistic>(getStatsByStatGroupId, groups.c_str());
    }

private:
    struct opened
    {
        RIX_GatewayToken_t token = nullptr;
        char *version = nullptr;
    };

    // Says good-bye and does not wait for an answer: nobody has asked for the wait, or could be told how it ended.
    void leave() noexcept
    {
        opened last = std::exchange(current, {});
        if (last.token == nullptr) return;
        const detail::scoped_time_limit limited(1);
        closeGatewayConnection(&last.token);
    }

    template <typename Item, typename Call, typename... Text>
    answer<Item> query(Call call, Text... elements) noexcept
    {
        RIX_ResultSetToken_t set = nullptr;
        const detail::scoped_time_limit limited(limit);
        const int code = call(current.token, elements..., &set);
        if (code == STAPI_COMMS_FAILURE || code == STAPI_GATEWAY_EXCHANGE_FAILED || code == STAPI_TIME_LIMIT_REACHED ||
            code == STAPI_GATEWAY_TOKEN_NOT_FOUND)
            current = {};
        return {set, code};
    }

    opened current;
    int limit = 0; // milliseconds
};

// Closes every connection of the process, whichever thread opened it. No other thread may be reading an answer. The
// connection objects find out at their next query (STAPI_GATEWAY_TOKEN_NOT_FOUND).
inline std::error_code close_all() noexcept
{
    return error(closeAllGatewayConnections());
}

// ---- The library -----------------------------------------------------------------------------------------------

// "1_1_0_1", or empty if the library cannot be set up.
inline std::string_view library_version() noexcept
{
    char *version = nullptr;
    return getStatsAPIVersion(&version) == STAPI_OK ? std::string_view(version) : std::string_view();
}

[[nodiscard]] inline std::error_code get_trace_level(int &level) noexcept
{
    return error(getAPITraceLevel(&level));
}
[[nodiscard]] inline std::error_code set_trace_level(int level) noexcept
{
    return error(setAPITraceLevel(level));
}
[[nodiscard]] inline std::error_code set_trace_file(text file) noexcept // null: standard error
{
    return error(setAPITraceFile(file.c_str()));
}
inline std::error_code dump_state() noexcept
{
    return error(dumpState());
}

} // namespace rixstats

// Found wherever a code of the headers becomes a std::error_code.
inline std::error_code make_error_code(RIX_ReturnCode code) noexcept
{
    return rixstats::error(code);
}
inline std::error_code make_error_code(RIX_ExtReturnCode code) noexcept
{
    return rixstats::error(code);
}

#endif // RIXSTATS_HPP
