// Lineage as XML, written from its beginning to its end as a context writes the tree of its objects, and as JSON that says
// the same.
#pragma once

#include "lineagerecords.h"

#include <string>
#include <string_view>
#include <utility>

// What an element says of a resource.
struct LineageDescription {
  QvbString label;
  QvbString id;
  QvbString type;
  QvbString analysisDate; // null without one
  QvbString dataPath;     // null or empty without one
};

enum class LineageForm { LaidOutXml, CompactXml, Json };

LineageText textOf(const LineageDescription& description, LineageForm form);

class LineageXml {
public:
  explicit LineageXml(LineageForm form);

  LineageForm form() const noexcept { return m_name; }

  // Room for so many models and for resources that take so many bytes by sizeOf(), so that nothing has to be moved.
  // Memory that cannot be had for it costs time alone.
  void reserve(std::size_t models, std::size_t resources);
  // What a resource takes at most, wherever it stands.
  std::size_t sizeOf(const LineageText& resource) const noexcept;
  void beginModel(const LineageText& resource);
  void addDependent(const LineageText& resource); // of the model that was begun last
  void end();

  // Whether the document is larger than a reader would take. From then on nothing is written.
  bool isTooLarge() const noexcept;
  // The whole document, once it has ended.
  QvbString take() { return std::move(m_text); }

private:
  struct Form;
  struct Place;
  static const Form laidOut;
  static const Form compact;
  static const Form json;
  static const Form& formOf(LineageForm name) noexcept;

  void write(const Place& place, const LineageText& resource);
  void endModel();
  void flush();

  LineageForm m_name;
  const Form& m_form;
  QvbString m_text;
  std::string m_buffer; // what follows it
  std::size_t m_size = 0;
  bool m_hasModels = false;
  bool m_hasDependents = false;
};
