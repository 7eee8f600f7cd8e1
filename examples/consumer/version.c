#include <quarvel/QuarvelPublic.h>
#include <stdio.h>

int main(void) {
  char version[16];
  if (insGetVersion(NULL, version, sizeof version) != insSuccess) return 1;
  printf("Quarvel %s\n", version);
  return 0;
}
