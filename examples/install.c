/* Installs a bundle on the first pen that is connected, with progress and a decision on every error.
   usage: install_c BUNDLE CERTIFICATE */
#include <inttypes.h>
#include <quarvel/QuarvelPublic.h>
#include <stdio.h>
#include <stdlib.h>

/* From the pen library. */
int32_t pcGetPenHandles(int32_t* handles, int32_t capacity);

static const char* meaning(InsResCode code) {
#define ROW(name, value, text, remedy) \
  case value:                          \
    return text;
  switch (code) { INS_RESULT_CODES(ROW) }
#undef ROW
  return "unknown result";
}

/* Progress: show it and go on. Error: skip a package that this library does not know, stop at anything else. */
static int32_t on_progress(int32_t pen, const PenUpdateProgressCallbackInfo* info, void* context) {
  (void)pen;
  (void)context;
  if (info->result != insSuccess) {
    fprintf(stderr, "%s: %s\n", info->packageName, meaning(info->result));
    return info->result != insUnknownPackage;
  }
  printf("%s: %" PRIu64 " of %" PRIu64 " bytes\n", info->packageName, info->itemDone, info->itemTotal);
  return 0;
}

static char* read_text(const char* path) {
  FILE* file = fopen(path, "rb");
  char* text = file ? calloc(1, 65536) : NULL;
  if (text && fread(text, 1, 65535, file) == 0) {
    free(text);
    text = NULL;
  }
  if (file) fclose(file);
  return text;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s BUNDLE CERTIFICATE\n", argv[0]);
    return 2;
  }
  char* certificate = read_text(argv[2]);
  int32_t pen = 0;
  if (!certificate || pcGetPenHandles(&pen, 1) < 1) {
    fprintf(stderr, certificate ? "no pen is connected\n" : "cannot read the certificate\n");
    free(certificate);
    return 2;
  }
  const char* certificates[] = {certificate};
  PenUpdateCfg config = {insFlagFirmware | insFlagApps, certificates, 1, NULL};
  InsResCode code = insStartInstallFile(&pen, argv[1], &config, on_progress, NULL);
  printf("result %" PRId32 ": %s\n", code, meaning(code));
  free(certificate);
  return code < 0;
}
