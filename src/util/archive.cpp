// Keyed archives in the platform's layout, over libplist's binary property lists.
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <plist/plist.h>

#include "corvane/util/data.h"
#include "util/plist_node.h"

namespace corvane::data {

namespace {

constexpr int kArchiverVersion = 100000;
// Deeper graphs than this are treated as corrupt rather than risk the stack.
constexpr int kMaxDepth = 256;

// Builds "$objects": index 0 is "$null", class descriptions are shared.
class Encoder {
 public:
  Encoder() { objects_.push_back(plist_new_string("$null")); }
  ~Encoder() {
    for (plist_t node : objects_) {
      if (node) plist_free(node);
    }
  }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  std::uint64_t encode(const nlohmann::json& value) {
    switch (value.type()) {
      case nlohmann::json::value_t::string: return encodeString(value.get_ref<const std::string&>());
      case nlohmann::json::value_t::boolean: return add(plist_new_bool(value.get<bool>() ? 1 : 0));
      case nlohmann::json::value_t::number_integer:
        return add(plist_new_uint(static_cast<std::uint64_t>(value.get<std::int64_t>())));
      case nlohmann::json::value_t::number_unsigned: {
        // The format's integers are signed 64-bit; larger values keep their magnitude as reals.
        const auto number = value.get<std::uint64_t>();
        if (number > static_cast<std::uint64_t>(INT64_MAX)) return add(plist_new_real(static_cast<double>(number)));
        return add(plist_new_uint(number));
      }
      case nlohmann::json::value_t::number_float: return add(plist_new_real(value.get<double>()));
      case nlohmann::json::value_t::object: return encodeDictionary(value);
      case nlohmann::json::value_t::array: return encodeArray(value);
      default: {
        plist_t null = plist_new_dict();
        plist_dict_set_item(null, "$class", plist_new_uid(classUid("NSNull", {"NSNull", "NSObject"})));
        return add(null);
      }
    }
  }

  // Hands the objects over as the "$objects" array.
  plist_t takeObjects() {
    plist_t array = plist_new_array();
    for (plist_t& node : objects_) {
      plist_array_append_item(array, node);
      node = nullptr;
    }
    objects_.clear();
    return array;
  }

 private:
  std::uint64_t add(plist_t node) {
    objects_.push_back(node);
    return objects_.size() - 1;
  }

  std::uint64_t encodeString(const std::string& text) {
    auto it = strings_.find(text);
    if (it != strings_.end()) return it->second;
    const std::uint64_t uid = add(plist_new_string(text.c_str()));
    strings_.emplace(text, uid);
    return uid;
  }

  std::uint64_t classUid(const std::string& name, std::initializer_list<const char*> chain) {
    auto it = classes_.find(name);
    if (it != classes_.end()) return it->second;
    plist_t description = plist_new_dict();
    plist_t names = plist_new_array();
    for (const char* entry : chain) plist_array_append_item(names, plist_new_string(entry));
    plist_dict_set_item(description, "$classes", names);
    plist_dict_set_item(description, "$classname", plist_new_string(name.c_str()));
    const std::uint64_t uid = add(description);
    classes_.emplace(name, uid);
    return uid;
  }

  // A collection takes its index before its contents, as the platform's archiver numbers them.
  std::uint64_t encodeDictionary(const nlohmann::json& value) {
    const std::uint64_t uid = add(nullptr);
    plist_t keys = plist_new_array();
    plist_t values = plist_new_array();
    for (const auto& [key, item] : value.items()) {
      plist_array_append_item(keys, plist_new_uid(encodeString(key)));
      plist_array_append_item(values, plist_new_uid(encode(item)));
    }
    plist_t node = plist_new_dict();
    plist_dict_set_item(node, "NS.keys", keys);
    plist_dict_set_item(node, "NS.objects", values);
    plist_dict_set_item(node, "$class", plist_new_uid(classUid("NSDictionary", {"NSDictionary", "NSObject"})));
    objects_[uid] = node;
    return uid;
  }

  std::uint64_t encodeArray(const nlohmann::json& value) {
    const std::uint64_t uid = add(nullptr);
    plist_t items = plist_new_array();
    for (const auto& item : value) plist_array_append_item(items, plist_new_uid(encode(item)));
    plist_t node = plist_new_dict();
    plist_dict_set_item(node, "NS.objects", items);
    plist_dict_set_item(node, "$class", plist_new_uid(classUid("NSArray", {"NSArray", "NSObject"})));
    objects_[uid] = node;
    return uid;
  }

  std::vector<plist_t> objects_;
  std::map<std::string, std::uint64_t> strings_;
  std::map<std::string, std::uint64_t> classes_;
};

bool isType(plist_t node, plist_type type) { return node != nullptr && plist_get_node_type(node) == type; }

std::optional<std::string> stringOf(plist_t node) {
  if (!isType(node, PLIST_STRING)) return std::nullopt;
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  if (text == nullptr) return std::nullopt;
  return std::string(text, static_cast<std::size_t>(length));
}

std::optional<std::uint64_t> uidOf(plist_t node) {
  if (!isType(node, PLIST_UID)) return std::nullopt;
  std::uint64_t uid = 0;
  plist_get_uid_val(node, &uid);
  return uid;
}

// Reads "$objects" back into JSON, checking every reference.
class Decoder {
 public:
  explicit Decoder(plist_t objects) : objects_(objects), count_(plist_array_get_size(objects)) {}

  // The object at `uid` and its kind, or nullopt when it is not a well-formed supported object.
  std::optional<nlohmann::json> decode(std::uint64_t uid, unsigned* kind, int depth) {
    if (uid >= count_ || depth > kMaxDepth) return std::nullopt;
    plist_t node = plist_array_get_item(objects_, static_cast<std::uint32_t>(uid));
    switch (plist_get_node_type(node)) {
      case PLIST_STRING: {
        if (uid == 0) return std::nullopt;  // "$null": no object
        *kind = kArchiveString;
        return stringOf(node);
      }
      case PLIST_BOOLEAN: {
        std::uint8_t flag = 0;
        plist_get_bool_val(node, &flag);
        *kind = kArchiveNumber;
        return nlohmann::json(flag != 0);
      }
      case PLIST_UINT: {
        std::uint64_t number = 0;
        plist_get_uint_val(node, &number);
        *kind = kArchiveNumber;
        return nlohmann::json(static_cast<std::int64_t>(number));
      }
      case PLIST_REAL: {
        double number = 0;
        plist_get_real_val(node, &number);
        *kind = kArchiveNumber;
        return nlohmann::json(number);
      }
      case PLIST_DICT: return decodeObject(uid, node, kind, depth);
      default: return std::nullopt;
    }
  }

 private:
  std::optional<nlohmann::json> decodeObject(std::uint64_t uid, plist_t node, unsigned* kind, int depth) {
    auto classUid = uidOf(plist_dict_get_item(node, "$class"));
    if (!classUid || *classUid >= count_) return std::nullopt;
    plist_t description = plist_array_get_item(objects_, static_cast<std::uint32_t>(*classUid));
    if (!isType(description, PLIST_DICT)) return std::nullopt;
    auto className = stringOf(plist_dict_get_item(description, "$classname"));
    if (!className) return std::nullopt;

    if (*className == "NSString" || *className == "NSMutableString") {
      *kind = kArchiveString;
      return stringOf(plist_dict_get_item(node, "NS.string"));
    }
    if (*className == "NSNull") {
      *kind = kArchiveNull;
      return nlohmann::json(nullptr);
    }
    const bool dictionary = *className == "NSDictionary" || *className == "NSMutableDictionary";
    const bool array = *className == "NSArray" || *className == "NSMutableArray";
    if (!dictionary && !array) return std::nullopt;

    // A collection that contains itself cannot be JSON.
    if (!open_.insert(uid).second) return std::nullopt;
    std::optional<nlohmann::json> result =
        dictionary ? decodeDictionary(node, depth) : decodeArray(plist_dict_get_item(node, "NS.objects"), depth);
    open_.erase(uid);
    *kind = dictionary ? kArchiveDictionary : kArchiveArray;
    return result;
  }

  std::optional<nlohmann::json> member(plist_t reference, int depth) {
    auto uid = uidOf(reference);
    if (!uid) return std::nullopt;
    unsigned kind = 0;
    return decode(*uid, &kind, depth + 1);
  }

  std::optional<nlohmann::json> decodeArray(plist_t items, int depth) {
    if (!isType(items, PLIST_ARRAY)) return std::nullopt;
    nlohmann::json out = nlohmann::json::array();
    const std::uint32_t size = plist_array_get_size(items);
    for (std::uint32_t i = 0; i < size; ++i) {
      auto item = member(plist_array_get_item(items, i), depth);
      if (!item) return std::nullopt;
      out.push_back(std::move(*item));
    }
    return out;
  }

  std::optional<nlohmann::json> decodeDictionary(plist_t node, int depth) {
    plist_t keys = plist_dict_get_item(node, "NS.keys");
    plist_t values = plist_dict_get_item(node, "NS.objects");
    if (!isType(keys, PLIST_ARRAY) || !isType(values, PLIST_ARRAY)) return std::nullopt;
    const std::uint32_t size = plist_array_get_size(keys);
    if (size != plist_array_get_size(values)) return std::nullopt;
    nlohmann::json out = nlohmann::json::object();
    for (std::uint32_t i = 0; i < size; ++i) {
      auto key = member(plist_array_get_item(keys, i), depth);
      // JSON objects are keyed by text only.
      if (!key || !key->is_string()) return std::nullopt;
      auto value = member(plist_array_get_item(values, i), depth);
      if (!value) return std::nullopt;
      out[key->get<std::string>()] = std::move(*value);
    }
    return out;
  }

  plist_t objects_;
  std::uint32_t count_;
  std::set<std::uint64_t> open_;
};

}  // namespace

std::vector<std::uint8_t> archivedDataWithObject(const nlohmann::json& object) {
  Encoder encoder;
  // A null root is the archiver's nil: the root refers to "$null".
  const std::uint64_t root = object.is_null() ? 0 : encoder.encode(object);

  PlistPtr archive(plist_new_dict());
  plist_t top = plist_new_dict();
  plist_dict_set_item(top, "root", plist_new_uid(root));
  plist_dict_set_item(archive.get(), "$version", plist_new_uint(kArchiverVersion));
  plist_dict_set_item(archive.get(), "$archiver", plist_new_string("NSKeyedArchiver"));
  plist_dict_set_item(archive.get(), "$top", top);
  plist_dict_set_item(archive.get(), "$objects", encoder.takeObjects());

  char* bytes = nullptr;  // plist_to_bin allocates only into a null pointer
  std::uint32_t length = 0;
  plist_to_bin(archive.get(), &bytes, &length);
  if (bytes == nullptr) return {};
  std::vector<std::uint8_t> out(reinterpret_cast<std::uint8_t*>(bytes), reinterpret_cast<std::uint8_t*>(bytes) + length);
  plist_to_bin_free(bytes);
  return out;
}

std::optional<nlohmann::json> toObjectOfClasses(std::span<const std::uint8_t> bytes, unsigned allowedKinds) {
  if (bytes.empty() || bytes.size() > UINT32_MAX) return std::nullopt;
  plist_t parsed = nullptr;
  plist_from_bin(reinterpret_cast<const char*>(bytes.data()), static_cast<std::uint32_t>(bytes.size()), &parsed);
  PlistPtr archive(parsed);
  if (!isType(archive.get(), PLIST_DICT)) return std::nullopt;
  plist_t objects = plist_dict_get_item(archive.get(), "$objects");
  plist_t top = plist_dict_get_item(archive.get(), "$top");
  if (!isType(objects, PLIST_ARRAY) || !isType(top, PLIST_DICT)) return std::nullopt;
  auto root = uidOf(plist_dict_get_item(top, "root"));
  if (!root) return std::nullopt;
  try {
    Decoder decoder(objects);
    unsigned kind = 0;
    auto value = decoder.decode(*root, &kind, 0);
    if (!value || (kind & allowedKinds) == 0) return std::nullopt;
    return value;
  } catch (const std::exception&) {
    return std::nullopt;  // e.g. text that is not UTF-8 where JSON needs it
  }
}

}  // namespace corvane::data
