#include <stdio.h>
#include <stdlib.h>

#include "kqft.h"

/* contract HOST PORT FILE: sends the file as Demo\run1.tm, by the protocol itself. */
int main(int argc, char** argv) {
  kqft_contract* client;
  const char* directory;
  const char* locals[1];
  const char* names[1];
  char name[1024];
  int64_t held = 0;
  int code;
  if (argc < 4 || kqft_contract_create(NULL, NULL, &client) != KQFT_OK) return 2;
  code = kqft_contract_connect(client, argv[1], atoi(argv[2]), 120000);
  if (code == KQFT_OK) code = kqft_contract_directory(client, &directory);
  if (code == KQFT_OK) {
    snprintf(name, sizeof name, "%sDemo\\run1.tm", directory);
    locals[0] = argv[3]; /* here */
    names[0] = name;     /* there */
    code = kqft_contract_upload(client, locals, names, 1);
  }
  if (code == KQFT_OK) code = kqft_contract_wait(client);
  if (code == KQFT_OK) code = kqft_contract_size(client, name, &held);
  if (code == KQFT_OK) kqft_contract_leave(client, name);
  if (code != KQFT_OK) fprintf(stderr, "%d: %s\n", code, kqft_describe(code));
  if (code == KQFT_OK) printf("%lld\n", (long long)held);
  kqft_contract_destroy(client);
  return code == KQFT_OK ? 0 : 1;
}
