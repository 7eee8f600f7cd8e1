/* The pen-communication library's interface: our own transcription of what libTessvik exports.

   1. Every function returns 0 for success unless its comment says otherwise; any other value is the library's own
      error number.
   2. A pen handle names a pen on the bus and changes whenever the pen re-attaches; a pen id names the pen for life.
   3. Texts are NUL-terminated 8-bit strings. Records have one byte layout on 32-bit and 64-bit machines.
   4. Answers are input: a count may be negative or too large and a text may fill its field without a NUL. */
#ifndef QUARVEL_PLATFORM_TESSVIK_H
#define QUARVEL_PLATFORM_TESSVIK_H

#include <stddef.h>
#include <stdint.h>

#include "platform/PenletAttribute.h"

#ifdef __cplusplus
extern "C" {
#endif

/* States of a pen that pcGetPenState reports. */
enum { pcPenStateNormal = 1, pcPenStateFirmwareDownload = 3 };

/* One installed penlet, 900 bytes (which is why the record is packed: 900 is no multiple of 8). */
#pragma pack(push, 4)
typedef struct PenletInfo {
  uint64_t firstId;      /* offset   0 */
  uint64_t secondId;     /* offset   8 */
  char name[64];         /* offset  16: the penlet's name */
  char guid[16];         /* offset  80: at most 15 characters */
  char displayName[368]; /* offset  96 */
  char version[16];      /* offset 464 */
  int32_t present;       /* offset 480: 0 when the slot is empty */
  int32_t buildNumber;   /* offset 484 */
  uint8_t reserved[264]; /* offset 488 */
  char groupName[128];   /* offset 752 */
  char groupVersion[20]; /* offset 880 */
} PenletInfo;
#pragma pack(pop)

/* The firmware of a pen, 144 bytes. */
typedef struct PenVersionInfo {
  uint8_t reserved[16];
  char firmwareVersion[64]; /* offset 16, for example "12-34-080915" */
  char versionSuffix[64];   /* offset 80 */
} PenVersionInfo;

#ifdef __cplusplus
#define QUARVEL_PIN(condition) static_assert(condition, #condition)
#else
#define QUARVEL_PIN(condition) _Static_assert(condition, #condition)
#endif
QUARVEL_PIN(sizeof(PenletInfo) == 900 && sizeof(PenVersionInfo) == 144 && sizeof(PenletAttribute) == 260);
QUARVEL_PIN(offsetof(PenletInfo, guid) == 80 && offsetof(PenletInfo, version) == 464);
QUARVEL_PIN(offsetof(PenletInfo, present) == 480 && offsetof(PenletInfo, buildNumber) == 484);
QUARVEL_PIN(offsetof(PenletInfo, groupName) == 752 && offsetof(PenletInfo, groupVersion) == 880);
#undef QUARVEL_PIN

/* Called on whatever thread the library transfers on; a non-zero answer asks it to stop the transfer. */
typedef int32_t (*pcProgressFunction)(int32_t penHandle, uint64_t totalBytes, uint64_t doneBytes, void* context);

/* Returns the number of pens connected and writes at most `capacity` handles. */
int32_t pcGetPenHandles(int32_t* handles, int32_t capacity);
/* `channel` and `name` may be null; `name` receives at most `nameSize` bytes. */
int32_t pcGetPenId(int32_t penHandle, uint64_t* penId, const int32_t* channel, char* name, int32_t nameSize);
/* An implementation may write only the low 16 bits of `penType`: preset it to 0. */
int32_t pcGetPenType(int32_t penHandle, int32_t* penType, int32_t channel, int32_t reserved);
int32_t pcGetPenState(int32_t penHandle, int32_t* state, int32_t channel, int32_t reserved);
/* With no buffer: refreshes the library's knowledge of the pen. */
int32_t pcGetPenInfo(int32_t penHandle, int32_t channel, void* buffer, int32_t bufferSize, pcProgressFunction progress,
                     void* context);
int32_t pcGetVersionInfo(int32_t penHandle, PenVersionInfo* info);
/* Returns 0 or 1 for success. */
uint32_t pcEnumeratePen(int32_t penHandle);
/* Fails while the same name and pen id are registered, by this process or another. */
int32_t pcRegisterVolatile(const char* name, uint64_t penId);
int32_t pcUnRegisterVolatile(const char* name, uint64_t penId);
int32_t pcStartObex(int32_t* channel, int32_t penHandle, int32_t timeoutMs);
int32_t pcStopObex(int32_t channel);
/* With no buffer: reads the pen's penlet list into the library. */
int32_t pcGetPenletInfo(int32_t penHandle, int32_t channel, void* buffer, int32_t bufferSize,
                        pcProgressFunction progress, void* context);
int32_t pcGetPenletCount(int32_t penHandle, int32_t* count);
int32_t pcGetPenletItem(int32_t penHandle, int32_t index, PenletInfo* item);
int32_t pcInstallPenlet(int32_t penHandle, int32_t channel, const char* file, const char* subject,
                        const char* signature, int32_t reserved, pcProgressFunction progress, void* context);
int32_t pcSetPenletAttrib(int32_t penHandle, int32_t channel, const char* guid, const PenletAttribute* attributes,
                          int32_t count);
int32_t pcUninstallPenlet(int32_t penHandle, int32_t channel, const char* guid);
/* The pen leaves the bus and comes back in firmware-download mode. */
int32_t pcDfuDetach(int32_t penHandle, int32_t reserved1, int32_t reserved2);
/* The pen leaves the bus after the download and comes back with its new firmware. */
int32_t pcDfuDownload(int32_t penHandle, const char* file, pcProgressFunction progress, void* context,
                      int32_t reserved);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
