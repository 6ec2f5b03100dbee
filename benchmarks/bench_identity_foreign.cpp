// The identity of a table as somebody writes it by hand, into a tree 200,000 times. The word tells what is in it that the
// library does not write: a comment, an instruction, or Latin-1.
#include "documents.h"

namespace {

std::string identity(const std::string& declaration, const std::string& catalog) {
  return "<?xml version='1.0'" + declaration +
         "<morvaxeldocument class='tableresource' version='1'>\n  <resource>\n    <tabledatasource "
         "dsn='Sales' "
         "dsntype='ODBC' catalog='" +
         catalog +
         "' schema='dbo' table='CUSTOMERS'/>\n  "
         "</resource>\n</morvaxeldocument>\n";
}

} // namespace

int main(int count, char** words) {
  const std::string_view kind = count > 2 ? words[2] : "";
  return bench(count, words,
               treeMakers(kind == "latin-1"       ? identity(" encoding='ISO-8859-1'?>\n", "Verk\xE4ufe")
                          : kind == "instruction" ? identity("?>\n<?editor indent='2'?>\n", "Sales")
                                                  : identity("?>\n<!-- by hand -->\n", "Sales"),
                          200'000));
}
