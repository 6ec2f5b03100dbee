// One definition file: an XML document that carries the saved fields of a definition.
#pragma once

#include "qvreposconfiguration.h"

#include <memory>
#include <string_view>

// How the name of a definition file ends, with no dot required before it.
inline constexpr std::string_view definitionFileSuffix = "rcf";

// What a file that could be read holds. It is shared by all who loaded it and never changes.
struct DefinitionFile {
  enum class Content { Malformed, NoDefinition, Definition };

  Content content = Content::Malformed;
  // Its file name and type are set whatever the content.
  QvReposConfigurationImpl definition;
};
using DefinitionFilePtr = std::shared_ptr<DefinitionFile>;

// Replaces the file atomically. On failure the old file is as it was and `error`, where given, tells why.
bool writeConfigurationContents(QvReposConfiguration* definition, const QvbString& path, QvbString* error);
// Null for a file that cannot be read.
DefinitionFilePtr readDefinitionFile(const QvbString& path, QvReposConfigType type);
