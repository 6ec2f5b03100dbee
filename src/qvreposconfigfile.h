// One definition file: an XML document that carries the saved fields of a definition.
#pragma once

#include "qvreposconfiguration.h"

#include <memory>
#include <string_view>

// How the name of a definition file ends, with no dot required before it.
inline constexpr std::string_view definitionFileSuffix = "rcf";

// What a file holds. It is shared by all who loaded it and never changes.
struct DefinitionFile {
  enum class Content { Unreadable, Malformed, NoDefinition, Definition };

  DefinitionFile(const QvbString& path, QvReposConfigType type);

  Content content = Content::Unreadable;
  // Why there is no definition, beginning with the file's path; null when there is one.
  QvbString reason;
  // Its file name and type are set whatever the content.
  QvReposConfigurationImpl definition;
};
using DefinitionFilePtr = std::shared_ptr<DefinitionFile>;

// Replaces the file atomically. On failure the old file is as it was and `error`, where given, tells why; it stays what it
// was when memory is too short to start.
bool writeConfigurationContents(QvReposConfiguration* definition, const QvbString& path, QvbString* error);
// Never null. Memory that cannot be had is std::bad_alloc: what the file holds is not known then.
DefinitionFilePtr readDefinitionFile(const QvbString& path, QvReposConfigType type);
