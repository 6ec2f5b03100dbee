#include "lineagexml.h"

#include "allocation.h"
#include "qvxdom/qvdom.h"

#include <algorithm>

namespace {

constexpr std::size_t bufferSize = std::size_t{64} << 10;

// Between the members of a dependent, the deepest ones, as they are kept; a model's stand further out. No string of JSON
// holds a line feed.
constexpr std::string_view memberLine = "\n        ";
constexpr std::string_view modelLine = "\n    ";

void appendFurtherOut(std::string& out, std::string_view members) {
  for (auto line = members.find(memberLine); line != members.npos; line = members.find(memberLine)) {
    out.append(members.substr(0, line)).append(modelLine);
    members.remove_prefix(line + memberLine.size());
  }
  out.append(members);
}

LineageText jsonOf(const LineageDescription& description) {
  std::string members = "\"id\": \"";
  const auto add = [&](std::string_view name, const QvbString& value) {
    members.append("\",")
        .append(memberLine)
        .append("\"")
        .append(name)
        .append("\": \"")
        .append(qvDomEscapeJson(value).view());
  };
  members.append(qvDomEscapeJson(description.id).view());
  add("label", description.label);
  add("type", description.type);
  if (!description.analysisDate.isNull())
    add("analysisDate", description.analysisDate);
  if (!description.dataPath.isEmpty())
    add("dataPath", description.dataPath);
  members += '"';
  return {QvbString(members), {}};
}

} // namespace

LineageText textOf(const LineageDescription& description, LineageForm form) {
  if (form == LineageForm::Json)
    return jsonOf(description);
  const bool isDated = !description.analysisDate.isNull();
  const QvbString date = qvDomEscapeAttribute(description.analysisDate);
  const QvbString id = qvDomEscapeAttribute(description.id);
  const QvbString label = qvDomEscapeAttribute(description.label);
  const QvbString type = qvDomEscapeAttribute(description.type);
  const std::string_view tag[] = {isDated ? "<Resource analysisDate=\"" : "<Resource",
                                  date.view(),
                                  isDated ? "\" id=\"" : " id=\"",
                                  id.view(),
                                  "\" label=\"",
                                  label.view(),
                                  "\" type=\"",
                                  type.view(),
                                  "\""};
  const bool hasPath = !description.dataPath.isEmpty();
  return {QvbString::joined(tag), hasPath ? qvDomEscapeText(description.dataPath) : QvbString()};
}

// What stands around a resource: before its tag and after it, without a data path and with one.
struct LineageXml::Place {
  std::string_view before;
  std::string_view after;
  std::string_view beforePath;
  std::string_view afterPath;
};

struct LineageXml::Form {
  std::string_view beginRoot;
  std::string_view emptyRoot;
  std::string_view endRoot;
  std::string_view betweenModels;
  Place model;
  std::string_view beginDependents;
  std::string_view betweenDependents;
  Place dependent;
  std::string_view endDependents;
  std::string_view endModel;
};

const LineageXml::Form LineageXml::laidOut{"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                           "<RelationshipModels>\n",
                                           "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                           "<RelationshipModels/>\n",
                                           "</RelationshipModels>\n",
                                           "",
                                           {"  <RelationshipModel>\n"
                                            "    ",
                                            "/>\n",
                                            ">\n"
                                            "      <ResourceAttributes>\n"
                                            "        <ResourceAttribute name=\"DATA.PATH\">",
                                            "</ResourceAttribute>\n"
                                            "      </ResourceAttributes>\n"
                                            "    </Resource>\n"},
                                           "    <RelationshipNodes>\n",
                                           "",
                                           {"      <RelationshipNode direction=\"1\" type=\"D\">\n"
                                            "        ",
                                            "/>\n"
                                            "      </RelationshipNode>\n",
                                            ">\n"
                                            "          <ResourceAttributes>\n"
                                            "            <ResourceAttribute name=\"DATA.PATH\">",
                                            "</ResourceAttribute>\n"
                                            "          </ResourceAttributes>\n"
                                            "        </Resource>\n"
                                            "      </RelationshipNode>\n"},
                                           "    </RelationshipNodes>\n",
                                           "  </RelationshipModel>\n"};

const LineageXml::Form LineageXml::compact{
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><RelationshipModels>",
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><RelationshipModels/>",
    "</RelationshipModels>",
    "",
    {"<RelationshipModel>", "/>", "><ResourceAttributes><ResourceAttribute name=\"DATA.PATH\">",
     "</ResourceAttribute></ResourceAttributes></Resource>"},
    "<RelationshipNodes>",
    "",
    {"<RelationshipNode direction=\"1\" type=\"D\">", "/></RelationshipNode>",
     "><ResourceAttributes><ResourceAttribute name=\"DATA.PATH\">",
     "</ResourceAttribute></ResourceAttributes></Resource></RelationshipNode>"},
    "</RelationshipNodes>",
    "</RelationshipModel>"};

// A dependents' array is there when it is empty, too: it ends with the model.
const LineageXml::Form LineageXml::json{"[",
                                        "[]\n",
                                        "\n]\n",
                                        ",",
                                        {"\n  {\n    ", ",\n    \"uses\": [", "", ""},
                                        "",
                                        ",",
                                        {"\n      {\n        ", "\n      }", "", ""},
                                        "\n    ",
                                        "]\n  }"};

const LineageXml::Form& LineageXml::formOf(LineageForm name) noexcept {
  return name == LineageForm::Json ? json : name == LineageForm::CompactXml ? compact : laidOut;
}

LineageXml::LineageXml(LineageForm form) : m_name(form), m_form(formOf(form)) {}

std::size_t LineageXml::sizeOf(const LineageText& resource) const noexcept {
  const Place& place = m_form.dependent;
  const auto path = resource.dataPath.view();
  return place.before.size() + m_form.betweenDependents.size() + resource.tag.view().size() +
         (resource.dataPath.isNull() ? place.after.size()
                                     : place.beforePath.size() + path.size() + place.afterPath.size());
}

void LineageXml::reserve(std::size_t models, std::size_t resources) {
  const std::size_t around = m_form.beginDependents.size() + m_form.endDependents.size() +
                             m_form.endModel.size() + m_form.betweenModels.size() + m_form.beginRoot.size() +
                             m_form.endRoot.size();
  tryAllocate([&] { m_text.reserve(std::min((models + 1) * around + resources, QvDom::MaxSize)); });
}

bool LineageXml::isTooLarge() const noexcept { return m_size + m_buffer.size() > QvDom::MaxSize; }

void LineageXml::flush() {
  if (!isTooLarge())
    m_text.append(std::string_view(m_buffer));
  m_size += m_buffer.size();
  m_buffer.clear();
}

void LineageXml::write(const Place& place, const LineageText& resource) {
  m_buffer.append(place.before);
  if (&place == &json.model)
    appendFurtherOut(m_buffer, resource.tag.view());
  else
    m_buffer.append(resource.tag.view());
  if (resource.dataPath.isNull())
    m_buffer.append(place.after);
  else
    m_buffer.append(place.beforePath).append(resource.dataPath.view()).append(place.afterPath);
  if (m_buffer.size() >= bufferSize)
    flush();
}

void LineageXml::beginModel(const LineageText& resource) {
  if (m_hasModels)
    endModel();
  m_buffer.append(m_hasModels ? m_form.betweenModels : m_form.beginRoot);
  m_hasModels = true;
  write(m_form.model, resource);
}

void LineageXml::addDependent(const LineageText& resource) {
  m_buffer.append(m_hasDependents ? m_form.betweenDependents : m_form.beginDependents);
  m_hasDependents = true;
  write(m_form.dependent, resource);
}

void LineageXml::endModel() {
  if (m_hasDependents)
    m_buffer.append(m_form.endDependents);
  m_hasDependents = false;
  m_buffer.append(m_form.endModel);
}

void LineageXml::end() {
  if (m_hasModels)
    endModel();
  m_buffer.append(m_hasModels ? m_form.endRoot : m_form.emptyRoot);
  flush();
}
