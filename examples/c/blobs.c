#include <stdio.h>
#include <varo/varo.h>

/* Prints what becomes of a blob. On a thread of the library. */
static void show(void* user, const varo_blob* blob) {
  (void)user;
  printf("blob %s is %s\n", blob->id, varo_blob_status_name(blob->status));
}

static int failed(const varo_outcome* outcome) {
  const varo_failure* failure = varo_outcome_failure(outcome);
  if (failure != NULL) fprintf(stderr, "%s\n", failure->message);
  return failure != NULL;
}

/* Fetches the photos of all employees, and says where each is or why it could not be fetched. */
static int fetch_all(const varo_blobs* blobs) {
  const char* const keys[] = {"id"};
  varo_outcome* photos = varo_blobs_of(blobs, "employees", "photo", keys, 1);
  varo_transfer* transfer =
      varo_blobs_fetch_all(blobs, varo_outcome_blob_refs(photos), varo_outcome_count(photos));
  varo_transfer_wait(transfer, -1);
  const varo_outcome* fetched = varo_transfer_outcome(transfer);
  const int done = !failed(photos) && !failed(fetched);
  for (size_t at = 0; at < varo_outcome_count(fetched); ++at) {
    const varo_blob* blob = varo_outcome_blob(fetched, at);
    printf("photo of %lld: %s\n", (long long)blob->ref->keys[0].integer,
           blob->has_file ? blob->path : blob->reason);
  }
  varo_transfer_release(transfer);
  varo_outcome_free(photos);
  return done;
}

/* Brings the photos of an application's database into files:
     c_blobs BLOB_URL DATABASE DIRECTORY
   To have a service and a database that names its photos:
     varobinary sandbox --example-db staff.db */
int main(int count, char** words) {
  if (count != 4) return 2;
  const varo_options options = {.size = sizeof options, .url = words[1]};
  const varo_blob_service service = {.size = sizeof service, .options = &options, .scope = "HR"};
  varo_blobs* blobs = NULL;
  varo_watch* watch = NULL;
  varo_failure* failure = NULL;
  int done = 0;
  if (varo_blobs_open(words[2], words[3], &service, &blobs, &failure) == VARO_OK &&
      varo_blobs_watch(blobs, show, NULL, &watch, &failure) == VARO_OK) {
    done = fetch_all(blobs);
  } else {
    fprintf(stderr, "%s\n", failure->message);
  }
  varo_watch_release(watch);
  varo_blobs_free(blobs);
  varo_failure_free(failure);
  return done ? 0 : 1;
}
