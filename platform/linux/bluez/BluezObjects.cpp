#include "platform/linux/bluez/BluezObjects.h"

namespace wrixel2::platform::bluez {

void BluezObjects::replace(const Dictionary& managedObjects) {
  objects_.clear();
  for (const auto& [path, interfaces] : managedObjects) {
    if (const auto* known = interfaces.dictionary()) {
      add(path, *known);
    }
  }
}

void BluezObjects::add(const std::string& path, const Dictionary& interfaces) {
  auto& object = objects_[path];
  for (const auto& [name, properties] : interfaces) {
    if (const auto* known = properties.dictionary()) {
      object[name] = *known;
    }
  }
}

void BluezObjects::remove(const std::string& path, const Array& interfaces) {
  const auto object = objects_.find(path);
  if (object == objects_.end()) {
    return;
  }
  for (const auto& name : interfaces) {
    if (name.text() != nullptr) {
      object->second.erase(*name.text());
    }
  }
  if (object->second.empty()) {
    objects_.erase(object);
  }
}

bool BluezObjects::change(const std::string& path, std::string_view interface,
                          const Dictionary& changed, const Array& invalidated) {
  const auto object = objects_.find(path);
  if (object == objects_.end()) {
    return false;
  }
  const auto properties = object->second.find(interface);
  if (properties == object->second.end()) {
    return false;
  }
  for (const auto& [name, value] : changed) {
    properties->second.insert_or_assign(name, value);
  }
  for (const auto& name : invalidated) {
    if (name.text() != nullptr) {
      properties->second.erase(*name.text());
    }
  }
  return true;
}

const Dictionary* BluezObjects::properties(std::string_view path,
                                           std::string_view interface) const {
  const auto object = objects_.find(path);
  if (object == objects_.end()) {
    return nullptr;
  }
  const auto properties = object->second.find(interface);
  return properties == object->second.end() ? nullptr : &properties->second;
}

std::vector<std::string> BluezObjects::pathsBelow(std::string_view path,
                                                  std::string_view interface) const {
  const std::string prefix = std::string(path) + "/";
  std::vector<std::string> paths;
  for (auto object = objects_.lower_bound(prefix);
       object != objects_.end() && object->first.starts_with(prefix); ++object) {
    if (object->second.contains(interface)) {
      paths.push_back(object->first);
    }
  }
  return paths;
}

}  // namespace wrixel2::platform::bluez
