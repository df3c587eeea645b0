#include "Client/C/CContent.h"
#include "Client/C/COptions.h"
#include "Client/C/COutcome.h"
#include "Client/C/CTransfer.h"
#include "Client/C/CValues.h"
#include "Client/C/Created.h"
#include "Client/C/GivenStruct.h"
#include "varo/c/objects.h"
#include "varo/objects.h"

#include <memory>
#include <utility>
#include <variant>

struct varo_objects {
  varo::ObjectStore store;
  /// Also where none of the functions of the options holds it.
  std::shared_ptr<varo::capi::UserData> user;
};

namespace varo::capi {

namespace {

using Where = std::variant<TemplateService, S3>;

static_assert(static_cast<int>(S3::Addressing::kPath) == VARO_ADDRESSING_PATH);
static_assert(static_cast<int>(S3::Addressing::kVirtualHost) == VARO_ADDRESSING_VIRTUAL_HOST);

Outcome<Where> whereFrom(const varo_s3* from) {
  if (from == nullptr) return missing("where");
  const auto given = givenStruct(from, "varo_s3");
  if (!given) return given.error();
  if (given->addressing != VARO_ADDRESSING_PATH &&
      given->addressing != VARO_ADDRESSING_VIRTUAL_HOST) {
    return invalid("varo_s3::addressing is none of varo_addressing");
  }
  return Where(S3{textFrom(given->endpoint), textFrom(given->region), textFrom(given->bucket),
                  static_cast<S3::Addressing>(given->addressing)});
}

Outcome<Where> whereFrom(const varo_template_service* from) {
  if (from == nullptr) return missing("where");
  const auto given = givenStruct(from, "varo_template_service");
  if (!given) return given.error();
  auto parameters =
      pairsFrom(given->parameters, given->parameter_count, "varo_template_service::parameters");
  if (!parameters) return std::move(parameters).error();
  return Where(TemplateService{textFrom(given->templates), textFrom(given->store),
                               textFrom(given->region), *std::move(parameters)});
}

template <typename GivenWhere>
varo_code create(const GivenWhere* where, const varo_options* options, varo_objects** objects,
                 varo_failure** failure) {
  return created(objects, "objects", failure, [&]() -> Outcome<std::unique_ptr<varo_objects>> {
    auto place = whereFrom(where);
    if (!place) return std::move(place).error();
    varo_options none = {};
    none.size = sizeof none;
    auto given = optionsFrom(options != nullptr ? options : &none);
    if (!given) return std::move(given).error();
    auto store = ObjectStore::create(*std::move(place), std::move(given->options));
    if (!store) return std::move(store).error();
    auto handle = std::make_unique<varo_objects>(varo_objects{*store, given->user});
    given->user->adopt();
    return handle;
  });
}

Outcome<PutOptions> putOptionsFrom(const varo_put_options* from) {
  const auto given = givenStruct(from, "varo_put_options");
  if (!given) return given.error();
  PutOptions options;
  if (given->bytes_per_second != 0) options.perSecond = Bytes(given->bytes_per_second);
  if (given->content_type != nullptr) options.contentType = given->content_type;
  if (given->part_size != 0) options.partSize = Bytes(given->part_size);
  options.keepParts = given->keep_parts != 0;
  options.resume = UploadId(textFrom(given->resume));
  if (given->parts_at_once != 0) options.partsAtOnce = given->parts_at_once;
  if (given->on_begun != nullptr) {
    options.onBegun = [tell = given->on_begun, user = given->user](const UploadId& upload) {
      tell(user, upload.text().c_str());
    };
  }
  return options;
}

Outcome<GetOptions> getOptionsFrom(const varo_get_options* from) {
  const auto given = givenStruct(from, "varo_get_options");
  if (!given) return given.error();
  const auto ifExists = ifExistsFrom(given->if_exists);
  if (!ifExists) return ifExists.error();
  GetOptions options;
  if (given->bytes_per_second != 0) options.perSecond = Bytes(given->bytes_per_second);
  options.ifExists = *ifExists;
  if (given->part_size != 0) options.partSize = Bytes(given->part_size);
  if (given->parts_at_once != 0) options.partsAtOnce = given->parts_at_once;
  options.keepParts = given->keep_parts != 0;
  if (given->range_first == 0 && given->range_length == 0) return options;
  options.range.emplace().first = given->range_first;
  if (given->range_length != 0) options.range->length = Bytes(given->range_length);
  return options;
}

Outcome<ObjectListOptions> listOptionsFrom(const varo_object_list_options* from) {
  const auto given = givenStruct(from, "varo_object_list_options");
  if (!given) return given.error();
  ObjectListOptions options;
  options.prefix = textFrom(given->prefix);
  options.delimiter = textFrom(given->delimiter);
  if (given->most != 0) options.most = given->most;
  return options;
}

/// Starts an operation on one object: `begin` gets the store and the key.
template <typename T, typename Begin>
varo_transfer* onObject(const varo_objects* objects, const char* key, Begin begin) {
  return started<T>([&]() -> Outcome<Transfer<T>> {
    if (objects == nullptr) return missing("objects");
    if (key == nullptr) return missing("key");
    return begin(objects->store, ObjectKey(key));
  });
}

template <typename MakeSource>
varo_transfer* put(const varo_objects* objects, const char* key, const varo_put_options* options,
                   MakeSource source) {
  const auto begin = [&](const ObjectStore& store,
                         ObjectKey name) -> Outcome<Transfer<ObjectInfo>> {
    auto given = putOptionsFrom(options);
    if (!given) return std::move(given).error();
    Outcome<Source> from = source();
    if (!from) return std::move(from).error();
    return store.put(std::move(name), *std::move(from), *std::move(given));
  };
  return onObject<ObjectInfo>(objects, key, begin);
}

template <typename MakeDestination>
varo_transfer* get(const varo_objects* objects, const char* key, const varo_get_options* options,
                   MakeDestination destination) {
  const auto begin = [&](const ObjectStore& store,
                         ObjectKey name) -> Outcome<Transfer<ObjectInfo>> {
    const auto given = getOptionsFrom(options);
    if (!given) return given.error();
    Outcome<Destination> to = destination();
    if (!to) return std::move(to).error();
    return store.get(std::move(name), *std::move(to), *given);
  };
  return onObject<ObjectInfo>(objects, key, begin);
}

}  // namespace

}  // namespace varo::capi

using namespace varo::capi;
using varo::ObjectInfo;
using varo::ObjectKey;
using varo::ObjectStore;
using varo::Outcome;
using varo::Transfer;

varo_code varo_objects_create_s3(const varo_s3* where, const varo_options* options,
                                 varo_objects** objects, varo_failure** failure) {
  return create(where, options, objects, failure);
}

varo_code varo_objects_create_templates(const varo_template_service* where,
                                        const varo_options* options, varo_objects** objects,
                                        varo_failure** failure) {
  return create(where, options, objects, failure);
}

void varo_objects_free(varo_objects* objects) {
  const std::unique_ptr<varo_objects> owned(objects);
}

varo_transfer* varo_objects_put_path(const varo_objects* objects, const char* key, const char* path,
                                     const varo_put_options* options) {
  return put(objects, key, options, [&] { return sourceOfPath(path); });
}

varo_transfer* varo_objects_put_bytes(const varo_objects* objects, const char* key,
                                      const void* bytes, size_t length,
                                      const varo_put_options* options) {
  return put(objects, key, options, [&] { return sourceOfBytes(bytes, length); });
}

varo_transfer* varo_objects_put_reader(const varo_objects* objects, const char* key,
                                       varo_read_fn read, void* user, uint64_t length,
                                       const varo_put_options* options) {
  return put(objects, key, options, [&] { return sourceOfReader(read, user, length); });
}

varo_transfer* varo_objects_get_path(const varo_objects* objects, const char* key, const char* path,
                                     const varo_get_options* options) {
  return get(objects, key, options, [&] { return destinationAt(path); });
}

varo_transfer* varo_objects_get_sink(const varo_objects* objects, const char* key,
                                     varo_write_fn write, void* user,
                                     const varo_get_options* options) {
  return get(objects, key, options, [&] { return destinationOfSink(write, user); });
}

varo_transfer* varo_objects_head(const varo_objects* objects, const char* key) {
  const auto begin = [](const ObjectStore& store, ObjectKey name) {
    return Outcome<Transfer<ObjectInfo>>(store.head(std::move(name)));
  };
  return onObject<ObjectInfo>(objects, key, begin);
}

varo_transfer* varo_objects_list(const varo_objects* objects,
                                 const varo_object_list_options* options) {
  using Objects = std::vector<ObjectInfo>;
  return started<Objects>([&]() -> Outcome<Transfer<Objects>> {
    if (objects == nullptr) return missing("objects");
    auto given = listOptionsFrom(options);
    if (!given) return std::move(given).error();
    return objects->store.list(*std::move(given));
  });
}

varo_transfer* varo_objects_remove(const varo_objects* objects, const char* key) {
  const auto begin = [](const ObjectStore& store, ObjectKey name) {
    return Outcome<Transfer<ObjectKey>>(store.remove(std::move(name)));
  };
  return onObject<ObjectKey>(objects, key, begin);
}
