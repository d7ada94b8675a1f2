#include <stdio.h>
#include <stdlib.h>

#include "kqft.h"

static kqft_client* client;
static int interrupted;

static void show(void* user, const kqft_progress* now) {
  (void)user;
  printf("\r%lld of %lld", (long long)now->done, (long long)now->total);
  if (!interrupted && now->moved > 0) interrupted = kqft_client_cancel(client);
}

/* roundtrip HOST PORT DIR INTO: sends DIR as the project Demo, with a break, has
   both sides compared, and fetches it into the directory INTO. */
int main(int argc, char** argv) {
  kqft_client_options place = {.size = sizeof place};
  kqft_callbacks callbacks = {.size = sizeof callbacks, .progress = show};
  kqft_options options = {.size = sizeof options, .project = "Demo"};
  int code;
  if (argc < 5) return 2;
  place.host = argv[1];
  place.port = atoi(argv[2]);
  if (kqft_client_create(&place, &client) != KQFT_OK) return 2;
  kqft_client_set_callbacks(client, &callbacks);
  code = kqft_client_put(client, argv[3], &options, NULL);
  if (code == KQFT_E_CANCELLED) code = kqft_client_put(client, argv[3], &options, NULL);
  interrupted = 1; /* nothing but the put */
  if (code == KQFT_OK) code = kqft_client_verify(client, "Demo", argv[3], NULL, NULL);
  if (code == KQFT_OK) code = kqft_client_get(client, "Demo", argv[4], NULL, NULL);
  if (code != KQFT_OK) fprintf(stderr, "%d: %s\n", code, kqft_client_words(client));
  kqft_client_destroy(client);
  return code == KQFT_OK ? 0 : 1;
}
