// The dump of the Gateway Token List: every connection with its result set. It is taken under the list's lock and
// written behind it, since nobody knows how long its destination takes: meanwhile connections are opened, used and
// closed as ever. What it shows is how things stood when it was taken, at the addresses where they stood.
#include "stapi_rix_gwytok.h"

#include "stapi_rix_diag.h"
#include "stapi_rix_diag_output.h"
#include "stapi_rix_resultsetbuffer.h"

#include <cstdlib>

namespace rixstats {

// One connection. The pointers are shown as addresses; only the copy is looked into.
typedef struct _DumpedToken
{
    char formattedToken[FORMATTED_TOKEN_SIZE];
    bool inUse; // its buffer was perhaps moving
    const Internal_ResultSetToken_t *resultSet;
    const char *owner;
    const char *buffer;
    const char *cursor;
    char *copy; // of the buffer, as far as the dump shows it; null if there was no buffer, or no memory
} DumpedToken;

typedef struct _ListDump
{
    int count;
    DumpedToken *tokens; // null if the list is empty, or if there was no memory
} ListDump;

// ---- Taking, with gtlLock held

static char *copyShown(const char *buffer)
{
    if (buffer == nullptr) return nullptr;
    const size_t shown = resultSetShown(buffer);
    char *copy = static_cast<char *>(malloc(shown));
    if (copy != nullptr) memcpy(copy, buffer, shown);
    return copy;
}

static void takeToken(const Internal_GatewayToken_t *token, DumpedToken *dumped)
{
    formatGatewayToken(token, dumped->formattedToken);
    dumped->inUse = token->state == TokenState::busy;
    const Internal_ResultSetToken_t *resultSet = dumped->resultSet = token->connRSPtr;
    if (dumped->inUse || resultSet == nullptr) return;
    dumped->owner = resultSet->owner == OWNER_LIBRARY ? "API" : "USR";
    dumped->buffer = resultSet->rsBuffPtr;
    dumped->cursor = readCursor(resultSet);
    dumped->copy = copyShown(resultSet->rsBuffPtr);
}

static int countTokens()
{
    int count = 0;
    for (const Internal_GatewayToken_t *token = gtListHeadPtr; token != nullptr && count < GTL_WALK_LIMIT;
         token = token->nextGwyTokPtr)
        count++;
    return count;
}

static ListDump takeList()
{
    const Locked list(gtlLock);
    const int count = countTokens();
    if (count == 0) return {0, nullptr};
    ListDump dump = {count, static_cast<DumpedToken *>(calloc(static_cast<size_t>(count), sizeof(DumpedToken)))};
    if (dump.tokens == nullptr) return dump;
    const Internal_GatewayToken_t *token = gtListHeadPtr;
    for (int i = 0; i < count; i++, token = token->nextGwyTokPtr)
        takeToken(token, &dump.tokens[i]);
    return dump;
}

static void releaseDump(const ListDump &dump)
{
    for (int i = 0; dump.tokens != nullptr && i < dump.count; i++)
        free(dump.tokens[i].copy);
    free(dump.tokens);
}

// ---- Writing, with traceLock held

static void writeResultSet(const DumpedToken &token)
{
    printOutput(statAPITraceHandle, "Dump of ResultSet(%p) owner(%s) buffer(%p) cursor(%p)\n%s\n", ptr(token.resultSet),
                token.owner, ptr(token.buffer), ptr(token.cursor), dumpRuler);
    if (token.copy != nullptr)
        traceOutCopy(token.copy, token.buffer, 0, RESULT_SET_TERMINATOR, DUMP_WIDTH, 0);
    else if (token.buffer != nullptr)
        printOutput(statAPITraceHandle, "There is no memory to dump the buffer\n");
    printOutput(statAPITraceHandle, "%s\n", dumpRuler);
}

static void writeToken(const DumpedToken &token, int number)
{
    printOutput(statAPITraceHandle, "Gateway Token List entry -%4.4d- : %s\n", number, token.formattedToken);
    if (token.inUse)
        printOutput(statAPITraceHandle, "The gateway token is in use, its ResultSet(%p) is not dumped\n",
                    ptr(token.resultSet));
    else if (token.resultSet != nullptr)
        writeResultSet(token);
}

static void writeList(const ListDump &dump)
{
    const Locked output(traceLock);
    const QuietOutput quiet;
    printOutput(statAPITraceHandle, "Gateway Token List dump\n%s\n", dumpRuler);
    if (dump.count == 0)
        printOutput(statAPITraceHandle, "The Gateway Token List is EMPTY\n");
    else if (dump.tokens == nullptr)
        printOutput(statAPITraceHandle, "There is no memory to dump the Gateway Token List\n");
    for (int i = 0; dump.tokens != nullptr && i < dump.count; i++)
        writeToken(dump.tokens[i], i + 1);
    if (dump.count > 0) printOutput(statAPITraceHandle, "Total number of Gateway Token List entries=%d\n", dump.count);
    printOutput(statAPITraceHandle, "%s\n", dumpRuler);
}

int dumpGatewayTokens()
{
    ENTRY(2016, "stapi_rix_gwytok.dumpGatewayTokens()\n");
    const ListDump dump = takeList();
    writeList(dump);
    releaseDump(dump);
    int rc = dump.count == 0 ? GTL_EMPTY : 0;
    if (dump.count == GTL_WALK_LIMIT) {
        rc = GTL_RUNAWAY;
        EXC(2017, "stapi_rix_gwytok.dumpGatewayTokens() Gateway Token List iteration has hit RUNAWAY limit %d.....\n",
            dump.count);
    }
    EXIT(2018, "stapi_rix_gwytok.dumpGatewayTokens() List length=%d rc=%d\n", dump.count, rc);
    return rc;
}

} // namespace rixstats
