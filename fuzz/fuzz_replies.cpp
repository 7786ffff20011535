// Fuzz target: the call data of a gateway's reply, as either parser reads it, and all that a monitoring program does
// with the result set made of it.
//
//   input   1 control byte: bit 0 identifiers, else statistics; bits 1..3 first size of the buffer, see below;
//           bits 4..6 all set: traced and dumped
//           the rest is the call data
#include "checks.h"
#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms.h"

#include <cstdint>
#include <cstring>

using namespace fuzzing;

// From the least that the first words need to what a connection starts with.
static const int FIRST_SIZES[8] = {16, 17, 20, 64, 250, 1024, 4097, RESULT_SET_SIZE};

// Takes the buffer over, as a copy of a result set does.
static void use(char *buffer, int bufferLen, bool dumped)
{
    RIX_ResultSetToken_t rs = nullptr;
    require(rixstats::createResultSet(&rs, "RIXRSUSR", OWNER_USER) == STAPI_OK, "a result set can be created");
    rs->rsBuffPtr = rs->cursor = buffer;
    rs->rsBuffLen = bufferLen;
    checkResultSet(rs);
    if (dumped) require(dumpResultSet(rs) == STAPI_OK, "a result set can be dumped");
    require(freeResultSet(&rs) == STAPI_OK && rs == nullptr, "a result set of the user's can be freed");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) return 0;
    const bool identifiers = (data[0] & 1) != 0;
    const bool traced = (data[0] & 0x70) == 0x70;
    const int callDataLen = static_cast<int>(size - 1);
    char *callData = static_cast<char *>(malloc(size - 1)); // a read behind its last byte is seen
    memcpy(callData, data + 1, size - 1);
    require(!traced || setAPITraceFile("/dev/null") == STAPI_OK, "the trace goes nowhere");
    setAPITraceLevel(traced ? 4 : 0);
    int bufferLen = FIRST_SIZES[data[0] >> 1 & 7];
    char *buffer = rixstats::newResultSetArea(bufferLen);
    const auto parse = identifiers ? rixstats::parseIdsData : rixstats::parseStatsData;
    const int rc = parse(callData, callDataLen, &buffer, &bufferLen);
    checkReadings(identifiers, callData, callDataLen);
    free(callData); // nothing of it may be needed to use the result set
    if (rc == STAPI_OK) {
        use(buffer, bufferLen, traced);
        return 0;
    }
    require(rc == STAPI_GATEWAY_EXCHANGE_FAILED || (rc == STAPI_NO_MEMORY && buffer == nullptr),
            "a reply is parsed, or refused by its code; a buffer that could not grow has been released");
    rixstats::freeResultSetArea(buffer);
    return 0;
}
