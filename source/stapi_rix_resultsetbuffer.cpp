// The primitives that write and test the words of a result-set buffer. They know nothing of its grammar and check no
// bounds: the reply parser keeps the buffer large enough and calls them in the right order.
#include "stapi_rix_resultsetbuffer.h"

#include "stapi_rix_diag.h"

namespace rixstats {

static void storeWord(char *cursor, int word)
{
    memcpy(cursor, &word, sizeof word);
}

int addIdStr(char **bufWPtr, const char *idString)
{
    int rixStatRc = STAPI_OK;
    ENTRY(2100, "stapi_rix_resultsetbuffer.addIdStr(&bufWPtr=%p,idString=%p)\n", ptr(bufWPtr), ptr(idString));
    if (bufWPtr == nullptr || *bufWPtr == nullptr || idString == nullptr) {
        rixStatRc = STAPI_NULL_ARGUMENT;
        EXC(2101, "stapi_rix_resultsetbuffer.addIdStr(&bufWPtr=%p,idString=%p) function received a null parameter\n",
            ptr(bufWPtr), ptr(idString));
    } else {
        const int length = static_cast<int>(strlen(idString));
        DEBUG(2102, "stapi_rix_resultsetbuffer.addIdStr bufWPtr(%p) *bufWPtr(%p) source string(%s) string lentgh(%d)\n",
              ptr(bufWPtr), ptr(*bufWPtr), idString, length);
        DEBUG(2103, "stapi_rix_resultsetbuffer.addIdStr Before writing id length, write cursor=%p\n", ptr(*bufWPtr));
        char *const lengthAt = *bufWPtr;
        storeWord(lengthAt, length);
        DEBUG(2104, "stapi_rix_resultsetbuffer.addIdStr Wrote length value %u to address %p, which reads back as %u\n",
              static_cast<unsigned>(length), ptr(lengthAt), static_cast<unsigned>(wordAt(lengthAt)));
        char *const textAt = lengthAt + sizeof length;
        DEBUG(2105, "stapi_rix_resultsetbuffer.addIdStr Before writing id string, write cursor=%p\n", ptr(textAt));
        memcpy(textAt, idString, static_cast<size_t>(length) + 1); // the next write overwrites the zero byte
        DEBUG(2106,
              "stapi_rix_resultsetbuffer.addIdStr Wrote string %s len %u to address %p, first char reads back as %c\n",
              idString, static_cast<unsigned>(length), ptr(textAt), *textAt);
        *bufWPtr = textAt + length;
    }
    // Shows no result, on purpose.
    EXIT(2107, "stapi_rix_resultsetbuffer.addIdStr(&bufWPtr=%p,idString=%p)\n", ptr(bufWPtr), ptr(idString));
    return rixStatRc;
}

int addInteger(char **bufWPtr, int rsInt)
{
    int rixStatRc = STAPI_OK;
    ENTRY(2108, "stapi_rix_resultsetbuffer.addInteger(&bufWPtr=%p,rsInt=%u)\n", ptr(bufWPtr),
          static_cast<unsigned>(rsInt));
    if (*bufWPtr == nullptr) {
        rixStatRc = STAPI_NULL_ARGUMENT;
        EXC(2109, "stapi_rix_resultsetbuffer.addInteger(&bufWPtr=%p) function received a null parameter\n",
            ptr(bufWPtr));
    } else {
        storeWord(*bufWPtr, rsInt);
        *bufWPtr += sizeof rsInt;
    }
    EXIT(2110, "stapi_rix_resultsetbuffer.addInteger(&bufWPtr=%p,rsInt=%u) rixStatRc=%u\n", ptr(bufWPtr),
         static_cast<unsigned>(rsInt), static_cast<unsigned>(rixStatRc));
    return rixStatRc;
}

static void storeChars(char **bufWPtr, const char *textPtr, int charCount)
{
    if (charCount <= 0) return;
    memcpy(*bufWPtr, textPtr, static_cast<size_t>(charCount));
    *bufWPtr += charCount;
}

int addChars(char **bufWPtr, const char *textPtr, int charCount)
{
    int rixStatRc = STAPI_OK;
    ENTRY(2111, "stapi_rix_resultsetbuffer.addChars(&bufWPtr=%p,textPtr=%p,charCount=%d)\n", ptr(bufWPtr), ptr(textPtr),
          charCount);
    if (*bufWPtr == nullptr) {
        rixStatRc = STAPI_NULL_ARGUMENT;
        EXC(2112, "stapi_rix_resultsetbuffer.addChars(&bufWPtr=%p) function received a null parameter\n", ptr(bufWPtr));
    } else {
        DEBUG(2114, "stapi_rix_resultsetbuffer.addChars() using memcpy() on writeCursor(%p) charCount(%d)\n",
              ptr(*bufWPtr), charCount);
        storeChars(bufWPtr, textPtr, charCount);
    }
    EXIT(2115, "stapi_rix_resultsetbuffer.addChars(&bufWPtr=%p,textPtr=%p) rixStatRc=%u\n", ptr(bufWPtr), ptr(textPtr),
         static_cast<unsigned>(rixStatRc));
    return rixStatRc;
}

// This platform's own characters are the gateway's: nothing is converted.
int addPlatformChars(char **bufWPtr, const char *textPtr, int charCount)
{
    int rixStatRc = STAPI_OK;
    ENTRY(2116, "stapi_rix_resultsetbuffer.addPlatformChars(&bufWPtr=%p,textPtr=%p,charCount=%d)\n", ptr(bufWPtr),
          ptr(textPtr), charCount);
    if (*bufWPtr == nullptr) {
        rixStatRc = STAPI_NULL_ARGUMENT;
        EXC(2117, "stapi_rix_resultsetbuffer.addPlatformChars(&bufWPtr=%p) function received a null parameter\n",
            ptr(bufWPtr));
    } else {
        DEBUG(2118, "stapi_rix_resultsetbuffer.addPlatformChars() writeCursor(%p) charCount(%d) \n", ptr(*bufWPtr),
              charCount);
        storeChars(bufWPtr, textPtr, charCount);
    }
    EXIT(2119, "stapi_rix_resultsetbuffer.addPlatformChars(&bufWPtr=%p,textPtr=%p) rixStatRc=%u\n", ptr(bufWPtr),
         ptr(textPtr), static_cast<unsigned>(rixStatRc));
    return rixStatRc;
}

int addTerminator(char *writeCursor)
{
    int rixStatRc = STAPI_OK;
    ENTRY(2120, "stapi_rix_resultsetbuffer.addTerminator(writeCursor=%p)\n", ptr(writeCursor));
    if (writeCursor == nullptr) {
        rixStatRc = STAPI_NULL_ARGUMENT;
        EXC(2121, "stapi_rix_resultsetbuffer.addTerminator(writeCursor=%p) function received a null parameter\n",
            ptr(writeCursor));
    } else {
        storeWord(writeCursor, RESULT_SET_TERMINATOR);
    }
    EXIT(2122, "stapi_rix_resultsetbuffer.addTerminator(writeCursor=%p, rixStatRc=%d)\n", ptr(writeCursor), rixStatRc);
    return rixStatRc;
}

int checkTerminator(const char *dataCursorPtr, int *isRSTermPtr)
{
    int rixStatRc = STAPI_OK;
    ENTRY(2123, "stapi_rix_resultsetbuffer.checkTerminator(dataCursor=%p, isRSTermPtr=%p)\n", ptr(dataCursorPtr),
          ptr(isRSTermPtr));
    if (dataCursorPtr == nullptr || isRSTermPtr == nullptr) {
        rixStatRc = STAPI_NULL_ARGUMENT;
        EXC(2124,
            "stapi_rix_resultsetbuffer.checkTerminator(dataCursor=%p, isRSTermPtr=%p) function received a null parameter\n",
            ptr(dataCursorPtr), ptr(isRSTermPtr));
    } else {
        *isRSTermPtr = wordAt(dataCursorPtr) == RESULT_SET_TERMINATOR ? 1 : 0;
        DEBUG(2125, "stapi_rix_resultsetbuffer.checkTerminator(dataCursor=%p, *isRSTermPtr=%d)\n", ptr(dataCursorPtr),
              *isRSTermPtr);
    }
    EXIT(2126, "stapi_rix_resultsetbuffer.checkTerminator(dataCursor=%p, isRSTermPtr=%p) rc=%d\n", ptr(dataCursorPtr),
         ptr(isRSTermPtr), rixStatRc);
    return rixStatRc;
}

} // namespace rixstats
