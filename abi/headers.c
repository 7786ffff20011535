/*
 * What programs compile in without linking to it: the values of the headers' enumerators, and the sizes and layouts of
 * the records. script/abi describes this file's object beside the library, so that a code which is renumbered, or a field
 * that moves, does not pass unseen.
 */
#include "rixstats_ext.h"

typedef struct _Seen
{
    enum RIX_ReturnCode returnCode;
    enum RIX_ExtReturnCode extReturnCode;
    enum RIX_Step step;
    enum RIX_SocketError socketError;
    RIX_IdData_t idData;
    RIX_StatData_t statData;
    RIX_Failure_t failure;
} Seen;

const Seen *seenByPrograms(void);
const Seen *seenByPrograms(void)
{
    return 0;
}
