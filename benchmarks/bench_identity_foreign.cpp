// The identity of a table as somebody writes it by hand, into a tree 200,000 times.
#include "documents.h"

int main(int count, char** words) {
  const std::string identity =
      "<?xml version='1.0'?>\n<!-- by hand -->\n<morvaxeldocument class='tableresource' version='1'>\n  "
      "<resource>\n    <tabledatasource dsn='Sales' dsntype='ODBC' schema='dbo' table='CUSTOMERS'/>\n  "
      "</resource>\n</morvaxeldocument>\n";
  return bench(count, words, treeMakers(identity, 200'000));
}
