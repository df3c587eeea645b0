#include <iostream>
#include <thread>
#include <varo/client.h>

// Uploads a photo, and gives it up when Enter is pressed:  first_program URL FILE
int main(int count, char** words) {
  if (count != 3) return 2;
  std::stop_source stop;
  std::thread([stop]() mutable {
    if (std::cin.get() == '\n') stop.request_stop();
  }).detach();
  const auto files = varo::FileClient::create({.url = words[1]});
  varo::UploadOptions options{.metadata = {{"kind", "photo"}}};
  for (int attempt = 1; files; ++attempt) {
    const auto photo = files->upload(varo::Source::file(words[2]), options)
                           .onProgress([](const varo::Progress& progress) {
                             std::cout << progress.done << " of " << progress.total << " bytes\n";
                           })
                           .cancelWith(stop.get_token())
                           .get();
    std::cout << (photo ? "Uploaded as " + photo->id.text() : photo.error().message) << '\n';
    if (photo || !photo.error().isWorthRetrying() || attempt == 3) return photo ? 0 : 1;
    // At the chunk that did not come through, where there is a record already.
    options.resume = photo.error().place.value_or(varo::UploadPlace());
    std::this_thread::sleep_for(photo.error().retryAfter.value_or(std::chrono::seconds(1)));
  }
  std::cout << files.error().message << '\n';
  return 2;
}
