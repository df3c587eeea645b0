#include <stdio.h>
#include <varo/varo.h>

/* Prints how far an upload is. On a thread of the library. */
static void show(void* user, const varo_progress* progress) {
  (void)user;
  printf("%llu of %llu bytes\n", (unsigned long long)progress->done,
         (unsigned long long)progress->total);
}

/* Waits for the end. Says what failed, if it did. */
static int succeeded(const char* what, const varo_transfer* transfer) {
  if (varo_transfer_wait(transfer, -1) == VARO_OK) return 1;
  const varo_failure* failure = varo_outcome_failure(varo_transfer_outcome(transfer));
  fprintf(stderr, "%s: %s (%s)\n", what, failure->message, varo_code_name(failure->code));
  return 0;
}

static int upload(const varo_files* files, const char* path) {
  const varo_entry metadata[] = {varo_text("owner", "ann"), varo_integer("year", 2026)};
  const varo_upload_options options = {
      .size = sizeof options, .metadata = metadata, .metadata_count = 2};
  varo_transfer* transfer = varo_files_upload_path(files, path, &options);
  varo_transfer_on_progress(transfer, show, NULL);
  const int done = succeeded("upload", transfer);
  if (done) {
    printf("uploaded %s\n", varo_outcome_file(varo_transfer_outcome(transfer), 0)->name);
  }
  varo_transfer_release(transfer);
  return done;
}

/* Gives up an upload that is under way. */
static int cancel(const varo_files* files, const char* path) {
  varo_transfer* transfer = varo_files_upload_path(files, path, NULL);
  varo_transfer_cancel(transfer);
  const varo_code code = varo_transfer_wait(transfer, -1);
  printf("the other upload: %s\n", varo_code_name(code));
  varo_transfer_release(transfer);
  return code == VARO_CANCELLED;
}

/* Downloads what is found to `path`, then removes it. */
static int fetch_and_remove(const varo_files* files, const char* id, const char* path) {
  const varo_download_options replace = {.size = sizeof replace,
                                         .if_exists = VARO_IF_EXISTS_REPLACE};
  varo_transfer* download = varo_files_download_path(files, id, path, &replace);
  varo_transfer* removal = NULL;
  int done = succeeded("download", download);
  if (done) {
    printf("downloaded to %s\n", varo_outcome_path(varo_transfer_outcome(download)));
    removal = varo_files_remove(files, id);
    done = succeeded("remove", removal);
  }
  varo_transfer_release(download);
  varo_transfer_release(removal);
  return done;
}

static int list(const varo_files* files, const char* path) {
  const varo_entry of_ann = varo_text("owner", "ann");
  varo_transfer* transfer = varo_files_list(files, &of_ann, 1);
  int done = succeeded("list", transfer);
  const varo_outcome* found = varo_transfer_outcome(transfer);
  for (size_t at = 0; done && at < varo_outcome_count(found); ++at) {
    const varo_file* file = varo_outcome_file(found, at);
    printf("found %s, %lld bytes, of %lld\n", file->name, (long long)file->bytes,
           (long long)varo_file_entry(file, "year")->integer);
    done = fetch_and_remove(files, file->id, path);
  }
  varo_transfer_release(transfer);
  return done;
}

/* Uploads a file, lists it, downloads it, removes it, and cancels another upload:
     c_files URL FILE COPY */
int main(int count, char** words) {
  if (count != 4) return 2;
  const varo_options options = {.size = sizeof options, .url = words[1]};
  varo_files* files = NULL;
  varo_failure* failure = NULL;
  if (varo_files_create(&options, &files, &failure) != VARO_OK) {
    fprintf(stderr, "%s\n", failure->message);
    varo_failure_free(failure);
    return 1;
  }
  const int done = upload(files, words[2]) && list(files, words[3]) && cancel(files, words[2]);
  varo_files_free(files);
  return done ? 0 : 1;
}
