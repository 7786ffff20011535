#include "conversation.h"

#include "query.h"

#include <cstring>
#include <utility>

namespace rixgwsim {

namespace {

constexpr std::int32_t kClientFlowVersion = 0x00700000;
constexpr std::int32_t kCloseFlowType = 10;
constexpr std::int32_t kCloseMessageId = -1;
constexpr std::size_t kHeaderStart = 24; // up to the request name
constexpr std::size_t kHeaderRest = 5;   // security and data length, after the request name
constexpr std::int32_t kVariable = -1;
constexpr std::int32_t kShortestCall = 12;
constexpr std::int32_t kLongestCall = 0x10000 + 1024; // the longest argument and what surrounds it
constexpr std::int32_t kGetAttribute = 1;
constexpr std::int32_t kInvoke = 5;

constexpr std::string_view kStatisticsBean = "DefaultDomain:ProdId=com.yst.rix,Activity=Control,type=Stats";
constexpr std::string_view kProtocolAttribute = "protocol";
constexpr std::string_view kSignature = "java.lang.String";

void appendDouble(Bytes &out, double value)
{
    static_assert(sizeof(double) == sizeof(std::uint64_t), "doubles travel as 64-bit IEEE numbers");
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    appendU64(out, bits);
}

std::size_t bodyOffset(const Bytes &message)
{
    return kHeaderStart + unsignedAt(message, 20, 4) + kHeaderRest;
}

// A reply may be whatever a test makes of it, so its fields are read as far as they are there.
std::optional<std::int32_t> fieldOf(const Bytes &reply, std::size_t offset)
{
    if (reply.size() < 4 || offset > reply.size() - 4) return std::nullopt;
    return int32At(reply, offset);
}

std::optional<std::int32_t> bodyFieldOf(const Bytes &reply, std::size_t offset)
{
    return reply.size() < kHeaderStart ? std::nullopt : fieldOf(reply, bodyOffset(reply) + offset);
}

} // namespace

struct Conversation::FlowRules
{
    const char *name;
    const char *requestName;
    std::int32_t flowType;
    std::int32_t dataLength;
};

Conversation::Conversation(int number, const Options &theOptions, std::function<GatewayTime()> timeOfQuery)
    : connection(number), options(theOptions), queryTime(std::move(timeOfQuery))
{
}

const Conversation::FlowRules &Conversation::rules() const
{
    static const FlowRules kRules[] = {
        {"handshake", "BASE", 5, 18},
        {"first authorisation request", "Auth", 1, 4},
        {"second authorisation request", "Auth", 1, 20},
        {"initial admin request", "Admin", 1, 4},
        {"get-attribute or invoke", "Admin", 1, kVariable},
        {"close", "BASE", kCloseFlowType, 0},
    };
    return kRules[static_cast<std::size_t>(closing ? Step::closed : step)];
}

Moment Conversation::moment() const
{
    return {connection, flowNumber, request.callType == kInvoke ? queryNumber : 0};
}

std::string Conversation::flowName() const
{
    return "connection " + std::to_string(connection) + ", flow " + std::to_string(flowNumber) + " (" + rules().name +
           ")";
}

void Conversation::beginRequest()
{
    ++flowNumber;
    closing = false;
    request = Request();
    request.connection = connection;
    request.flow = flowNumber;
}

std::size_t Conversation::bytesWanted(const Bytes &bytes)
{
    if (bytes.size() < kHeaderStart) return kHeaderStart - bytes.size();
    if (bytes.size() == kHeaderStart) checkHeaderStart(bytes);
    const std::size_t header = bodyOffset(bytes);
    if (bytes.size() < header) return header - bytes.size();
    if (bytes.size() == header) checkHeaderRest(bytes);
    const std::size_t whole = header + unsignedAt(bytes, header - 4, 4);
    if (bytes.size() < whole) return whole - bytes.size();
    checkBody(bytes);
    request.bytes = bytes;
    return 0;
}

void Conversation::checkHeaderStart(const Bytes &bytes)
{
    closing = int32At(bytes, 8) == kCloseFlowType;
    const bool echoed = echoes() && !closing;
    FieldReader header(bytes, 0);
    header.expectInt("eyecatcher", kEyecatcher);
    header.expectInt("flowVersion", echoed ? echo.flowVersion : kClientFlowVersion);
    header.expectInt("flowType", rules().flowType);
    header.expectInt("gatewayRc", 0); // requests have the next two the other way round than replies
    header.expectInt("messageId", closing ? kCloseMessageId : echoed ? echo.messageId : 0);
    header.expectInt("requestTypeLength", static_cast<std::int32_t>(std::strlen(rules().requestName)));
}

void Conversation::checkHeaderRest(const Bytes &bytes)
{
    FieldReader header(bytes, kHeaderStart);
    header.expectRaw("requestType", rules().requestName);
    header.expectByte("security", echoes() && !closing ? echo.security : 0);
    if (rules().dataLength != kVariable) {
        header.expectInt("datalength", rules().dataLength);
        return;
    }
    const std::int32_t length = header.readInt("datalength");
    if (length < kShortestCall || length > kLongestCall)
        header.refuse("datalength", std::to_string(kShortestCall) + " to " + std::to_string(kLongestCall),
                      describe(length));
}

void Conversation::checkBody(const Bytes &bytes)
{
    const std::size_t offset = bodyOffset(bytes);
    FieldReader body(bytes, offset);
    if (closing) return;
    switch (step) {
    case Step::handshake:
        body.expectText("client language", "en");
        body.expectText("client country", "GB");
        body.expectBytes("ten zero bytes", Bytes(10));
        break;
    case Step::firstAuth:
    case Step::initialAdmin:
        request.callType = 0;
        body.expectInt("callType", 0);
        break;
    case Step::secondAuth:
        request.callType = 1;
        body.expectInt("callType", 1);
        body.expectBytes("activeProtocolMap", echo.protocolMap);
        body.expectInt("serverVersion", echo.serverVersion);
        body.expectInt("protocolDataLength", 0);
        break;
    case Step::adminCall:
        checkAdminCall(body, bytes.size() - offset);
        break;
    case Step::closed:
        break;
    }
    body.expectEnd();
}

void Conversation::checkAdminCall(FieldReader &body, std::size_t length)
{
    request.callType = body.readInt("callType");
    if (request.callType != kGetAttribute && request.callType != kInvoke)
        body.refuse("callType", "1 (get-attribute) or 5 (invoke)", describe(request.callType));
    body.expectInt("serverVersion", echo.serverVersion);
    body.expectInt("callInfoLength", static_cast<std::int32_t>(length) - kShortestCall);
    body.expectText("clientCountry", "US");
    body.expectText("clientLanguage", "en");
    body.expectText("clientVariant", "");
    body.expectText("objectName", kStatisticsBean);
    if (request.callType == kInvoke) {
        checkInvoke(body);
    } else {
        body.expectText("attributeName", kProtocolAttribute);
        request.attribute = kProtocolAttribute;
    }
}

void Conversation::checkInvoke(FieldReader &body)
{
    request.action = body.readText("invokeAction");
    if (!actionNamed(request.action))
        body.refuse("invokeAction", "RESOURCE_GROUPS, STAT_IDS or GET_STATS", request.action);
    body.expectInt("number of arguments", 1);
    body.expectBytes("start of the argument's object stream", {0xAC, 0xED, 0x00, 0x05, 0x74});
    request.argument = body.readText("invokeParms");
    body.expectInt("number of signatures", 1);
    body.expectText("invokeSigs", kSignature);
    ++queryNumber;
}

Bytes Conversation::answer(const Faults &faults)
{
    std::optional<Bytes> reply;
    if (options.wholeReply) reply = options.wholeReply(flowNumber, request.bytes);
    if (!reply) reply = ordinaryReply(faults);
    const bool accepted = accepts(*reply);
    learnFrom(*reply);
    advance(accepted);
    return *reply;
}

Bytes Conversation::ordinaryReply(const Faults &faults)
{
    const GatewayIdentity &identity = options.identity;
    const bool faulty = flowNumber >= faults.faultsFromFlow;
    const std::int32_t gatewayRc = faulty ? faults.gatewayRc : 0;
    const Bytes body = gatewayRc != 0 ? Bytes() : replyBody(faults, faulty);

    const auto replies = static_cast<std::uint32_t>(flowNumber - 1);
    Bytes reply;
    appendI32(reply, kEyecatcher);
    appendI32(reply, identity.flowVersion);
    appendI32(reply, rules().flowType);
    appendU32(reply, static_cast<std::uint32_t>(identity.messageId) +
                         static_cast<std::uint32_t>(identity.messageIdStep) * replies);
    appendI32(reply, gatewayRc);
    appendU32(reply, static_cast<std::uint32_t>(std::strlen(rules().requestName)));
    appendRaw(reply, rules().requestName);
    appendU8(reply, identity.security);
    appendU32(reply, static_cast<std::uint32_t>(body.size()));
    reply.insert(reply.end(), body.begin(), body.end());
    return reply;
}

Bytes Conversation::replyBody(const Faults &faults, bool faulty)
{
    const GatewayIdentity &identity = options.identity;
    if (closing || step == Step::closed) return {};
    if (step == Step::handshake) return identity.handshakeBody;
    if (step == Step::initialAdmin || step == Step::adminCall) return adminBody(faults, faulty);

    const bool first = step == Step::firstAuth;
    const std::int32_t authRc = first ? faults.authRc : 0;
    Bytes body;
    appendI32(body, request.callType);
    appendI32(body, authRc);
    appendDouble(body, first ? identity.activeProtocolMap : identity.protocolReturnMap);
    if (first && authRc == 0) appendI32(body, identity.serverVersion);
    return body;
}

Bytes Conversation::adminBody(const Faults &faults, bool faulty)
{
    const std::int32_t adminRc = faulty ? faults.adminRc : 0;
    const bool exception = faulty && faults.exceptionFlag;
    Bytes body;
    appendI32(body, request.callType);
    appendI32(body, adminRc);
    if (adminRc != 0) return body;
    if (step == Step::initialAdmin) {
        appendI32(body, options.identity.serverVersion);
        return body;
    }
    appendU8(body, exception ? 1 : 0);
    if (!exception) {
        const Bytes data = callData(faults);
        body.insert(body.end(), data.begin(), data.end());
    }
    return body;
}

Bytes Conversation::callData(const Faults &faults)
{
    if (options.callData)
        if (std::optional<Bytes> replacement = options.callData(request)) return *replacement;
    if (request.callType == kGetAttribute) return writeAttribute(options.identity.protocolVersion);

    const Action action = *actionNamed(request.action);
    const GatewayTime time = action == Action::statistics ? queryTime() : GatewayTime();
    try {
        return queryCallData(options, action, request.argument, time, faults.replySize);
    } catch (const std::runtime_error &error) {
        throw std::runtime_error("cannot answer " + request.action + " with " + std::to_string(faults.replySize) +
                                 " bytes of call data: " + error.what());
    }
}

// Whether the client, when it reads this reply, may go on to the next step.
bool Conversation::accepts(const Bytes &reply) const
{
    if (fieldOf(reply, 16).value_or(-1) != 0) return false;
    if (step == Step::firstAuth)
        return bodyFieldOf(reply, 0).value_or(0) != 0 || bodyFieldOf(reply, 4).value_or(-1) == 0;
    if (step == Step::initialAdmin) return bodyFieldOf(reply, 4).value_or(-1) == 0;
    return true;
}

void Conversation::learnFrom(const Bytes &reply)
{
    echo.flowVersion = fieldOf(reply, 4).value_or(0);
    echo.messageId = fieldOf(reply, 12).value_or(0);
    if (reply.size() < kHeaderStart || bodyOffset(reply) > reply.size()) return;
    const std::size_t body = bodyOffset(reply);
    echo.security = reply[body - kHeaderRest];
    if (step == Step::firstAuth && reply.size() - body >= 20) {
        const auto map = reply.begin() + static_cast<std::ptrdiff_t>(body + 8);
        echo.protocolMap.assign(map, map + 8);
        echo.serverVersion = int32At(reply, body + 16);
    }
    if (step == Step::initialAdmin) echo.serverVersion = bodyFieldOf(reply, 8).value_or(0);
}

void Conversation::advance(bool accepted)
{
    if (closing)
        step = Step::closed;
    else if (step == Step::adminCall) // its pair is over, however it went
        step = Step::initialAdmin;
    else if (accepted)
        step = static_cast<Step>(static_cast<int>(step) + 1);
}

} // namespace rixgwsim
