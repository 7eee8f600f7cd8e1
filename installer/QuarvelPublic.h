/* Quarvel: installs signed application bundles onto digital pens.

   Conventions, once for all eleven functions:

   1. Every function returns an InsResCode. 0 is success, 1 says that there was nothing to do, every negative value is
      a failure; INS_RESULT_CODES below lists them all with their meaning and remedy.
   2. Texts are NUL-terminated 8-bit strings. The library only reads those that it is given, and only during the call.
   3. Any function may be called from any thread at any time. An install or a removal runs on the calling thread and
      may block for minutes: while the pen's firmware is replaced it leaves the bus twice, each time for up to 60
      seconds. insAbort and insAbortAll are meant to be called from another thread meanwhile.
   4. The progress callback is called on the installing thread and, during a transfer, on whatever thread the pen
      library transfers on; never on both at once for one pen.
   5. A pen handle names a pen on the bus and changes when the pen re-attaches; a pen id names the pen for life.
   6. Nothing is thrown to the caller. When memory runs out, a function returns one of its codes and the log says
      "Out of memory".
   7. A callback returns to the library. One that throws aborts its run. A host's thread that ends itself inside the
      callback (pthread_exit) takes the call with it: the run ends where it stands, the pen is released, nothing is
      returned. A request to cancel a thread (pthread_cancel) acts after its call. A thread of the pen library must not
      be ended in a callback: the transfer would never return. */
#ifndef QUARVEL_PUBLIC_H
#define QUARVEL_PUBLIC_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define QUARVEL_API __attribute__((visibility("default")))
#else
#define QUARVEL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* X(enumerator, value, meaning, remedy): every result, one line each. */
/* clang-format off */
#define INS_RESULT_CODES(X) \
  X(insSuccess, 0, "success", "") \
  X(insNothingToDo, 1, "the pen already holds everything that the bundle offers", "Nothing is to be done; force the install to transfer everything again.") \
  X(insAborted, -2, "the run was aborted", "Start the install again; it goes on with what the pen still lacks.") \
  X(insFileNotFound, -4, "a file was not found or could not be opened", "Check the path and the file's permissions; the log names the file.") \
  X(insNoResource, -5, "the bundle has nothing for this pen or group", "Check that the bundle is meant for this pen type and that the group's name is right.") \
  X(insPenFailure, -6, "a call to the pen failed", "Check that the pen is connected, switched on and not used by another program, then try again. A pen left in download mode is unplugged and plugged in first.") \
  X(insNotRunning, -7, "no run is in progress for this pen", "Nothing is to be aborted; check the pen id.") \
  X(insBadManifest, -100, "a manifest of the bundle is missing or lacks a required element", "Get the bundle again; if it still fails, its author must rebuild it.") \
  X(insExtractFailed, -101, "the bundle could not be unpacked", "Check that the file is a whole bundle and that the temporary folder has room and belongs to you; the log names the reason.") \
  X(insUnknownPackage, -102, "a package is of a kind that is not recognised", "Use a newer version of this library, or let the callback skip the package.") \
  X(insNoBundle, -103, "no bundle is loaded under this handle", "Load the bundle first; a released handle is never valid again.") \
  X(insFirmwareFailed, -200, "installing the firmware failed", "Unplug the pen, switch it off and on, plug it in and start the install again; the log has the pen library's own reason.") \
  X(insAppFailed, -201, "installing an application failed", "Check that the pen stays connected and has room, then try again.") \
  X(insVerifyPenFailed, -202, "after the install the pen's contents are not as expected", "Start the install again with force; the log names the difference.") \
  X(insPackageUnsigned, -300, "a package failed its signature check", "Do not use this bundle; get it again from its author.") \
  X(insNoConfig, -301, "no configuration was given", "Pass a PenUpdateCfg.") \
  X(insBadCertificate, -302, "a given certificate is not a valid PEM certificate", "Check the certificate files that are passed.") \
  X(insNoSignature, -303, "a file of the bundle has no entry in the signature manifest", "Do not use this bundle; its author must sign every file.") \
  X(insBadSignature, -304, "a file of the bundle has an invalid signature", "Do not use this bundle; it was damaged or changed after it was signed.") \
  X(insNoCertificate, -305, "no given certificate belongs to a file's signer", "Pass the certificate of the bundle's signer.") \
  X(insBadSubject, -306, "a signer in the signature manifest cannot be read", "The bundle's author must write the signer's subject correctly.") \
  X(insNotVerified, -307, "no certificate was given, so nothing can be verified", "Pass at least one certificate.") \
  X(insTimeout, -1000, "the pen did not leave or come back within 60 seconds", "Reconnect the pen and start the install again.") \
  X(insNoOutput, -9999, "insGetVersion was given no place for its answer", "Pass at least one of the two outputs.")
/* clang-format on */

#define INS_ENUMERATOR(name, value, meaning, remedy) name = (value),
enum InsResCodes { INS_RESULT_CODES(INS_ENUMERATOR) insResCodesEnd = 0x7fffffff };
#undef INS_ENUMERATOR
typedef int32_t InsResCode;

/* Bits of PenUpdateCfg.flags; other bits are ignored. */
enum InsFlags {
  insFlagFirmware = 1, /* take firmware packages, verify each before its transfer, re-enumerate a pen whose handle
                          changed */
  insFlagApps = 2,     /* take all other packages, verify each before its transfer, raise group versions */
  insFlagForce = 16    /* install without comparing with what the pen holds */
};

/* What to install and whom to trust. Owned by the caller and only read, during the call. */
typedef struct PenUpdateCfg {
  uint32_t flags;                  /* InsFlags */
  const char* const* certificates; /* PEM texts of the trusted certificates */
  int32_t certificateCount;        /* number of entries in `certificates` */
  const char* group;               /* the one group to install; null or empty for every group */
} PenUpdateCfg;

/* One property of a package, as its author wrote it. */
typedef struct PenUpdateProperty {
  const char* name;
  const char* value;
} PenUpdateProperty;

/* What a callback is told. The record and every text in it are the library's and valid only during the call. */
typedef struct PenUpdateProgressCallbackInfo {
  InsResCode result; /* 0 in a progress report, else the failure of the current package */
  uint64_t penId;
  const char* packageFile; /* full path of the package's file on this machine */
  const char* packageName; /* in a removal: the penlet's name */
  const char* guid;
  const char* version;
  const char* action;   /* "Removing" in a removal */
  const char* fileType; /* as in the manifest; in a removal "PenApp" or "PaperProduct" */
  int32_t transferOrder;
  const PenUpdateProperty* properties; /* null when the package has none */
  int32_t propertyCount;               /* filled in error reports only */
  const char* bundleFile;
  const char* groupName;
  uint64_t doneCount;  /* bytes of the packages already finished; in a removal the penlet's number,
                          from 1 */
  uint64_t totalCount; /* bytes of all selected packages; in a removal the number of penlets */
  uint64_t itemDone;   /* progress reports: bytes of the current package sent so far */
  uint64_t itemTotal;  /* progress reports: size of the current package in bytes */
  int64_t startTime;   /* when the current transfer began, in seconds since the epoch */
} PenUpdateProgressCallbackInfo;

/* Called for progress (info->result is 0) and for a failing package (info->result is its code).
   Answer 0 to go on; for a failing package that means to skip it. Any other answer to a progress report aborts the
   run, which then ends with -2; to an error report it ends the run with that error. */
typedef int32_t (*PenUpdateProgressCallback)(int32_t penHandle, const PenUpdateProgressCallbackInfo* info,
                                             void* userData);

/* Tells the version of the library: four numbers into `parts` and/or the text "1.2.13.0" into `text`. Either may be
   null. At most `textSize` bytes are written, so that 8 or less leave the text without its NUL; 0 or less means that
   the caller vouches for 9 bytes. Returns 0, or -9999 when both places are null. */
QUARVEL_API InsResCode insGetVersion(int* parts, char* text, int textSize);

/* Switches the log on (`enable` non-zero) or off. `logFile` is the log's path, relative to the working folder, or null
   for "Quarvel.log" there; the file is opened when the first line is written and is trimmed, once it is idle, when it
   has grown beyond `maxLogSize` bytes (its low 32 bits count; 0 for 1 MiB): its newest lines stay, 256,000 bytes less
   than that, so that a limit below 256,000 empties it. May be called again at any time. Always returns 0. */
QUARVEL_API InsResCode insSetupLog(char enable, const char* logFile, uint64_t maxLogSize);

/* Unpacks the bundle at `bundleFile` and reads its manifests. On success writes its handle, a positive number that is
   never given out again, to `*bundleHandle` (which may be null); on failure leaves it as it was. The caller releases
   the handle; until then the bundle holds its folder below /tmp open, and files that it relies on are not replaced by
   the load of another bundle, which ends with -101. Returns 0, -4, -100, -101 or -306. */
QUARVEL_API InsResCode insLoadBundle(const char* bundleFile, int* bundleHandle);

/* Releases a loaded bundle. Runs that use it finish undisturbed. Returns 0, or -103 for an unknown handle. */
QUARVEL_API InsResCode insReleaseBundle(int bundleHandle);

/* Checks every file of a loaded bundle against the certificates in `cfg`, which are also those that later installs by
   this handle check packages with. Returns 0, -4, -103, -301 to -305 or -307. */
QUARVEL_API InsResCode insVerifyBundle(int bundleHandle, const PenUpdateCfg* cfg);

/* The same for a bundle file that is loaded and dropped within the call. Returns also what insLoadBundle does. */
QUARVEL_API InsResCode insVerifyBundleFile(const char* bundleFile, const PenUpdateCfg* cfg);

/* Installs on one pen what a loaded bundle has for it. `*penHandle` names the pen and afterwards holds its current
   handle; null or 0 stands for no pen: then the packages that stay on the desktop are reported to the callback and
   nothing is installed. The bundle as a whole is not verified again (see insVerifyBundle); its manifest is, and each
   package before its transfer, with the certificates of the last verification of this handle: `cfg->certificates` is
   not read, and a run keeps the certificates that it began with. Without a callback the first failing package ends the
   run. -4 says that the folder that the bundle was unpacked into is gone: load the file again. -6 may say that the pen
   was left in download mode and cannot tell its id (pens of type 1): unplug it and plug it in again.
   Returns 0, 1, -2, -4, -5, -6, -102, -103, -200, -201, -202, -300, -301, -303 to -305, -307 or -1000. */
QUARVEL_API InsResCode insStartInstall(int32_t* penHandle, int bundleHandle, const PenUpdateCfg* cfg,
                                       PenUpdateProgressCallback callback, void* userData);

/* The same for a bundle file that is loaded, verified as a whole and dropped within the call. Returns also what
   insLoadBundle and insVerifyBundle do. */
QUARVEL_API InsResCode insStartInstallFile(int32_t* penHandle, const char* bundleFile, const PenUpdateCfg* cfg,
                                           PenUpdateProgressCallback callback, void* userData);

/* Removes every application of the group `groupName` (letter case counts) from one pen, reporting each one, with the
   code -6 where it could not be removed. An empty name stands for the applications that have no group; a null one
   removes nothing. Returns 0 (also when some could not be removed or the group is not there), -2 or -6. */
QUARVEL_API InsResCode insRemoveGroup(int32_t penHandle, const char* groupName, PenUpdateProgressCallback callback,
                                      void* userData);

/* Asks the run on the pen with this id (not handle) to stop. May be called from any thread and from inside the
   callback. The run then ends with -2, with two exceptions. A request that comes before the run has read the pen's type
   and state is forgotten; until then insAbort mostly does not know the pen (-7), and insStartInstallFile loads and
   verifies its bundle first, which cannot be aborted. And one that comes after the last package's report no longer
   changes the result. Returns 0, or -7 when no run is in progress for that pen. */
QUARVEL_API InsResCode insAbort(uint64_t penId);

/* Asks every run to stop, as insAbort does. Always returns 0. */
QUARVEL_API InsResCode insAbortAll(void);

/* The record's layout is part of the interface. On 32-bit x86 it is 96 bytes without a gap; elsewhere pointers are
   larger and 64-bit fields stand at multiples of 8. */
#ifdef __cplusplus
#define QUARVEL_PIN(field, offset32, offset64) \
  static_assert(offsetof(PenUpdateProgressCallbackInfo, field) == (sizeof(void*) == 4 ? offset32 : offset64), #field);
#else
#define QUARVEL_PIN(field, offset32, offset64) \
  _Static_assert(offsetof(PenUpdateProgressCallbackInfo, field) == (sizeof(void*) == 4 ? offset32 : offset64), #field);
#endif
#if defined(__i386__) || defined(__x86_64__) || defined(__aarch64__)
QUARVEL_PIN(result, 0, 0)
QUARVEL_PIN(penId, 4, 8)
QUARVEL_PIN(packageFile, 12, 16)
QUARVEL_PIN(packageName, 16, 24)
QUARVEL_PIN(guid, 20, 32)
QUARVEL_PIN(version, 24, 40)
QUARVEL_PIN(action, 28, 48)
QUARVEL_PIN(fileType, 32, 56)
QUARVEL_PIN(transferOrder, 36, 64)
QUARVEL_PIN(properties, 40, 72)
QUARVEL_PIN(propertyCount, 44, 80)
QUARVEL_PIN(bundleFile, 48, 88)
QUARVEL_PIN(groupName, 52, 96)
QUARVEL_PIN(doneCount, 56, 104)
QUARVEL_PIN(totalCount, 64, 112)
QUARVEL_PIN(itemDone, 72, 120)
QUARVEL_PIN(itemTotal, 80, 128)
QUARVEL_PIN(startTime, 88, 136)
#endif
#undef QUARVEL_PIN

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
