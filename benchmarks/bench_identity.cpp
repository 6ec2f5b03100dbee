// The identity of a table, as the library writes it, into a tree 500,000 times.
#include "documents.h"

int main(int count, char** words) {
  const std::string identity =
      R"(<morvaxeldocument class="tableresource" version="1"><resource>)"
      R"(<tabledatasource dsn="Sales" dsntype="ODBC" catalog="main" schema="dbo" table="CUSTOMERS_OF_THE_NORTH"/>)"
      R"(</resource></morvaxeldocument>)";
  return bench(count, words, treeMakers(identity, 500'000));
}
