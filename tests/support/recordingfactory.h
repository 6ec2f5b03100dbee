// A host's own factory, resolver and resource, which tell what the library asked of them.
#pragma once

#include "guards.h"
#include "qvreposres/qvresourcefactory.h"
#include "qvresource.h"
#include "support/textio.h"

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

// A resource as one text per field that identifies it.
struct ResourceFields {
  std::string name;
  std::string type;
  std::string identity;

  bool operator==(const ResourceFields&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const ResourceFields& fields) {
  return out << '{' << fields.name << ", " << fields.type << ", " << fields.identity << '}';
}

inline ResourceFields fieldsOf(QvResource& resource) {
  return {str(resource.getName()), str(resource.getResourceType()), str(resource.getResourceIdentity())};
}

// Every field is public and any of them may be set; `live`, where given, counts the resources that were not released.
struct HostResource : QvResource {
  explicit HostResource(std::shared_ptr<int> liveCount = nullptr) : live(std::move(liveCount)) {
    if (live)
      ++*live;
  }
  ~HostResource() override {
    if (live)
      --*live;
  }
  HostResource(const HostResource&) = delete;
  HostResource& operator=(const HostResource&) = delete;

  void release() override { delete this; }
  QvbString getId() override { return id; }
  QvbString getName() override { return name; }
  QvbString getResourceType() override { return type; }
  QvbString getResourceIdentity() override { return identity; }
  int getDependencyType() override { return dependencyType; }
  QvResourcePropertyList* getProperties() override { return properties; }
  QvbDate getAnalysisDate() override { return date; }
  QvbString getResourceLocation() override { return location; }
  bool IsResolved() override { return resolved; }
  bool IsResourceIdentityMacroValue() override { return isMacroValue; }

  std::shared_ptr<int> live;
  QvbString id, name, type, identity, location;
  QvbDate date;
  int dependencyType = 0;
  QvResourcePropertyList* properties = nullptr;
  bool resolved = true;
  bool isMacroValue = false;
};

// Answers from its fields and notes each question as "operation(argument, ...)".
struct RecordingResolver : QvResourceResolver {
  void release() override {}
  bool resolveResource(const QvbString& type, const QvbString& id, const QvbString& uuid, QvbString* name,
                       QvbString* reference) override {
    calls.push_back("resolve(" + str(type) + ", " + str(id) + ", " + str(uuid) + ")");
    gotNull = gotNull || type.isNull() || id.isNull() || uuid.isNull();
    if (!resolves)
      return false;
    *name = foundName;
    *reference = foundReference;
    return true;
  }
  QvResource* getResourceFromURI(const QvbString& uri) override {
    calls.push_back("fromURI(" + str(uri) + ")");
    if (!givesResource)
      return nullptr;
    Released<HostResource> resource(new HostResource(live));
    resource->name = "found name";
    resource->type = "found type";
    resource->identity = "found identity";
    return resource.release();
  }
  bool getResourceLocation(const QvbString&, const QvbString&, const QvbString&, QvbString*,
                           QvbString*) override {
    calls.push_back("location");
    return false;
  }
  bool getUnifiedRepositoryName(QvbString* name) override {
    if (servedRepository.isNull() && !servesNullName)
      return false;
    *name = servedRepository;
    return true;
  }
  bool resolveResource(const QvbString& type, const QvbString& id, const QvbString& name,
                       const QvbString& uuid, QvbString* identity) override {
    calls.push_back("resolveByName(" + str(type) + ", " + str(id) + ", " + str(name) + ", " + str(uuid) +
                    ")");
    gotNull = gotNull || type.isNull() || id.isNull() || name.isNull() || uuid.isNull();
    if (!resolves)
      return false;
    *identity = foundReference;
    return true;
  }

  std::vector<std::string> calls;
  bool gotNull = false; // a null text in place of an empty one
  bool resolves = false;
  bool givesResource = false;
  bool servesNullName = false;
  QvbString servedRepository; // null: the name cannot be had
  QvbString foundName = "resolved name";
  QvbString foundReference = "resolved reference";
  std::shared_ptr<int> live = std::make_shared<int>(0);
};

// Makes resources unless `refuses` says no, and notes what was asked for.
struct RecordingFactory : QvResourceFactory {
  void release() override {}
  QvbString getErrorMessage() override { return {}; }
  QvResource* getResource(const QvbString& name, const QvbString& type, const QvbString& identity) override {
    requests.push_back({str(name), str(type), str(identity)});
    gotNull = gotNull || name.isNull() || type.isNull() || identity.isNull();
    if (refuses && refuses(requests.back()))
      return nullptr;
    return makesRecords ? record(name, type, identity) : hostResource(name, type, identity);
  }
  QvbString getPluginPath() override { return {}; }
  void registerResourceResolver(QvResourceResolver*) override {}
  QvResourceResolver* getResourceResolver() override { return resolver; }
  QvResource* getDataResource(QvDataURI*) override { return nullptr; }

  QvResource* hostResource(const QvbString& name, const QvbString& type, const QvbString& identity) {
    auto* resource = new HostResource(live);
    resource->name = name;
    resource->type = type;
    resource->identity = identity;
    resource->properties = properties;
    return resource;
  }
  static QvResource* record(const QvbString& name, const QvbString& type, const QvbString& identity) {
    auto* resource = new QvResourceImpl;
    resource->setName(name);
    resource->setType(type);
    resource->setResourceIdentity(identity);
    return resource;
  }

  std::vector<ResourceFields> requests;
  bool gotNull = false; // a null text in place of an empty one
  std::function<bool(const ResourceFields&)> refuses;
  bool makesRecords = false; // the library's own records in place of the host's
  QvResourcePropertyList* properties = nullptr;
  QvResourceResolver* resolver = nullptr;
  std::shared_ptr<int> live = std::make_shared<int>(0);
};

// What a list holds, read from its first row.
inline std::vector<ResourceFields> rowsOf(QvResourceList& list) {
  std::vector<ResourceFields> rows;
  list.reset();
  while (list.next())
    rows.push_back(fieldsOf(*list.getValue()));
  return rows;
}
