// Lineage XML taken apart again.
#pragma once

#include "support/textio.h"

#include "qvxdom/qvdom.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

struct LineageResource {
  std::string type;
  std::string label;
  std::string id;
  std::string dataPath;

  auto operator<=>(const LineageResource&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const LineageResource& r) {
  return out << '{' << r.type << ", " << r.label << ", " << r.id << ", " << r.dataPath << '}';
}

struct LineageModel {
  LineageResource resource;
  std::vector<LineageResource> dependencies;
};

inline LineageResource readLineageResource(const QvDomNode& node) {
  EXPECT_EQ(node.getName(), QvbString("Resource"));
  LineageResource resource{str(node.getAttributeValue("type")), str(node.getAttributeValue("label")),
                           str(node.getAttributeValue("id")), ""};
  const QvDomNode attribute = node.getFirstChild(false).getFirstChild(false);
  if (str(attribute.getAttributeValue("name")) == "DATA.PATH")
    resource.dataPath = str(attribute.getValue(false));
  return resource;
}

// The models of a lineage document by the label of their resource.
inline std::map<std::string, LineageModel> readLineage(const std::string& xml) {
  QvDom document;
  EXPECT_TRUE(document.loadXML(text(xml))) << document.getErrorMessage();
  EXPECT_EQ(document.getRoot().getName(), QvbString("RelationshipModels"));
  std::map<std::string, LineageModel> models;
  for (QvDomNode node = document.getRoot().getFirstChild(false); !node.null();
       node = node.getNextSibling(false)) {
    const QvDomNode resource = node.getFirstChild(false);
    LineageModel model{readLineageResource(resource), {}};
    for (QvDomNode edge = resource.getNextSibling(false).getFirstChild(false); !edge.null();
         edge = edge.getNextSibling(false))
      model.dependencies.push_back(readLineageResource(edge.getFirstChild(false)));
    EXPECT_TRUE(models.emplace(model.resource.label, model).second)
        << "two models of " << model.resource.label;
  }
  return models;
}
