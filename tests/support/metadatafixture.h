// Metadata objects and their context, as tests make and read them.
#pragma once

#include "guards.h"
#include "qvreposerializecontextimpl.h"
#include "support/logcapture.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Object = Released<RepositoryMetadataObject>;
using List = Released<RepositoryMetadataObjectList>;
using Context = Released<RepositorySerializationContext>;

inline constexpr const char* declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
inline constexpr const char* category = "QV.Repos.QvReposRes.Serialize";

inline Context make() { return Context(createRepositoryMetadataSerializationContext()); }

inline LogLine line(int level, const std::string& text) {
  return {category, level, "src/qvreposerializecontextimpl", text};
}

inline std::string document(const std::string& content) {
  return "<morvaxeldocument class=\"RepositoryMetadataObject\" version=\"1.0\">" + content +
         "</morvaxeldocument>";
}

inline std::string serialized(RepositorySerializationContext& context, RepositoryMetadataObject* object,
                              bool layout = false) {
  QvbString xml;
  EXPECT_TRUE(context.serialize(object, &xml, nullptr, layout));
  return str(xml);
}

inline RepositoryMetadataObject* read(RepositorySerializationContext& context, const std::string& content) {
  return context.deSerialize(text(document(content)), nullptr);
}

inline std::vector<std::string> idsOf(RepositoryMetadataObjectList* list) {
  const List owned(list);
  std::vector<std::string> ids;
  while (owned->next())
    ids.push_back(str(owned->getValue()->getId()));
  return ids;
}

inline std::vector<std::string> containedIn(RepositoryMetadataObject* object) {
  return idsOf(object->getContainedObjects());
}

inline std::string attribute(RepositoryMetadataObject* object, const char* name) {
  QvbString value = "(none)";
  object->getAttribute(name, &value);
  return str(value);
}

// Whether the object is still there is for the address sanitizer to say.
inline void use(RepositoryMetadataObject* object) { EXPECT_TRUE(object->addAttribute("used", "yes")); }

// A job with a step of its own and a table that it uses.
inline RepositoryMetadataObject* nightlyJob(RepositorySerializationContext& context) {
  RepositoryMetadataObject* job = context.getMetadataObject("Job", "J1");
  job->addAttribute("name", "nightly");
  RepositoryMetadataObject* table = context.getMetadataObject("Table", "T9");
  table->addAttribute("name", "CUSTOMERS");
  RepositoryMetadataObject* step = context.createMetadataObject("Step");
  step->setId("S1");
  job->addContainedObject(step);
  job->addAssociatedObject("Uses", table);
  return job;
}

// A context of an application's own, which has a say in what objects and properties there are.
struct HostContext : RepositorySerializationContextImpl {
  RepositoryMetadataObject* getMetadataObject(const QvbString& type, const QvbString& id) override {
    asked.push_back(str(type));
    return same(type, "Refused") ? nullptr : RepositorySerializationContextImpl::getMetadataObject(type, id);
  }
  bool addImportProperty(RepositoryMetadataObject*, const QvbString& name, const QvbString& value) override {
    asked.push_back(str(name) + "=" + str(value));
    return false;
  }
  bool getImportProperty(RepositoryMetadataObject*, const QvbString& name, QvbString* value) override {
    asked.push_back(str(name));
    *value = "12";
    return answers;
  }
  static bool same(const QvbString& a, const char* b) { return a.compare(b) == 0; }
  std::vector<std::string> asked;
  bool answers = true;
};
