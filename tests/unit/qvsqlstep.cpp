#include "qvreposres/qvsqlstep.h"

#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Notes each call as "operation(argument, ...)".
class NotingVisitor final : public QvSQLStepVisitor {
public:
  void visitConnection(const QvbString& name, const QvbString& type, const QvbString& connection) override {
    note("connection", {name, type, connection});
  }
  void visitTableRead(QvSQLTableElement element, const QvDataURIComponents& table,
                      const QvbString& name) override {
    note(element == QvSQLTableElement::AliasTable ? "alias" : "source",
         {table.server, table.dataSource, table.dataSourceType, table.catalog, table.schema, table.table,
          name});
  }
  void visitBareTableRead(QvSQLTableElement element, const QvbString& table,
                          const QvbString& connection) override {
    note(element == QvSQLTableElement::AliasTable ? "bare alias" : "bare source", {table, connection});
  }
  void visitTableWritten(const QvbString& connection, const QvbString& catalog, const QvbString& schema,
                         const QvbString& table) override {
    note("written", {connection, catalog, schema, table});
  }
  void visitUnusableName(const QvbString& element, const QvbString& name, const QvbString& reason) override {
    note("unusable", {element, name, reason});
  }
  void visitUnknownRoot(const QvbString& name) override { note("unknown", {name}); }

  std::vector<std::string> calls;

private:
  void note(const char* operation, const std::vector<QvbString>& arguments) {
    std::string call = std::string(operation) + "(";
    for (const auto& argument : arguments)
      call += (&argument == &arguments.front() ? "" : ", ") + (argument.isNull() ? "(null)" : str(argument));
    calls.push_back(call + ")");
  }
};

std::vector<std::string> walk(const std::string& content) {
  NotingVisitor visitor;
  QvbString error;
  EXPECT_TRUE(visitSQLStepInString(text("<SQLUpdateRows>" + content + "</SQLUpdateRows>"), &visitor, &error));
  EXPECT_TRUE(error.isNull());
  return visitor.calls;
}

} // namespace

TEST(SQLStep, TellsConnectionsAndTablesInDocumentOrder) {
  EXPECT_THAT(walk("<SourceTable Name='early'/><DatabaseConnectionObject Name='Sales' DbDACType='QVTK'/>"
                   "<q><SourceTable Name='o' "
                   "PathURI='qvf://SYS/Mart?type=ODBC&amp;catalog=c&amp;schema=dbo&amp;table=orders'/></q>"
                   "<AliasTable Name='late'/><Create TargetName='c.dw.t'/>"),
              ElementsAre("bare source(early, )", "connection(Sales, GRVS, DSN=Sales;QVXTYPE=GRVS;)",
                          "source(SYS, Mart, ODBC, c, dbo, orders, o)",
                          "bare alias(late, DSN=Sales;QVXTYPE=GRVS;)",
                          "written(DSN=Sales;QVXTYPE=GRVS;, c, dw, t)"));
}

TEST(SQLStep, TellsAConnectionWithoutAName) {
  EXPECT_THAT(walk("<DatabaseConnectionObject/>"), ElementsAre("connection(, ODBC, DSN=;QVXTYPE=ODBC;)"));
}

TEST(SQLStep, TellsNamesThatCannotBeUsedWithTheReason) {
  const std::string tooLong(1100, 'x');
  EXPECT_THAT(walk("<Create TargetName='t'/><DatabaseConnectionObject Name='S'/>"
                   "<Create TargetName='a.b.c.d'/><create TargetName='dw.'/><Create TargetName='" +
                   tooLong + "'/>"),
              ElementsAre("unusable(Create, t, has no connection before it)", testing::_,
                          "unusable(Create, a.b.c.d, is not catalog, schema and table)",
                          "unusable(create, dw., names no table)",
                          "unusable(Create, " + tooLong + ", is not catalog, schema and table)"));
  EXPECT_THAT(walk("<SourceTable Name='t' PathURI='no URI'/><AliasTable PathURI='qvd:///Sales?table=t'/>"
                   "<SourceTable PathURI='qvd:///?type=ODBC&amp;table=t'/>"),
              ElementsAre("unusable(SourceTable, no URI, is no data URI)",
                          "unusable(AliasTable, qvd:///Sales?table=t, names no type of its data source)",
                          "unusable(SourceTable, qvd:///?type=ODBC&table=t, names no data source)"));
}

TEST(SQLStep, TellsTheDataSourceOfAURIWithoutATable) {
  EXPECT_THAT(walk("<SourceTable PathURI='qvd:///Sales?type=ODBC'/>"),
              ElementsAre("source(, Sales, ODBC, , , , )",
                          "unusable(SourceTable, qvd:///Sales?type=ODBC, names no table)"));
}

TEST(SQLStep, PassesOverWhatNamesNothing) {
  EXPECT_THAT(walk("<SourceTable/><AliasTable Name='' PathURI=''/><Create TargetName=''/><Create/>text"),
              IsEmpty());
}

TEST(SQLStep, TellsTheRootOfEveryOtherDocument) {
  NotingVisitor visitor;
  EXPECT_TRUE(visitSQLStepInString("<Step><SourceTable Name='t'/></Step>", &visitor, nullptr));
  EXPECT_THAT(visitor.calls, ElementsAre("unknown(Step)"));
}

TEST(SQLStep, TellsWhereATextIsMalformed) {
  NotingVisitor visitor;
  QvbString error;
  EXPECT_FALSE(visitSQLStepInString("<SQLUpdateRows>\n<a></b>", &visitor, &error));
  EXPECT_TRUE(str(error).starts_with("2:")) << str(error);
  EXPECT_FALSE(visitSQLStepInString("", &visitor, nullptr));
  EXPECT_THAT(visitor.calls, IsEmpty());
}

TEST(SQLStep, IsReadFromAFile) {
  const TempDir folder;
  NotingVisitor visitor;
  QvbString error;
  const auto good = folder.write("good.xsq", "<SQLUpdateRows><SourceTable Name='t'/></SQLUpdateRows>");
  EXPECT_TRUE(visitSQLStepInFile(text(good), &visitor, &error));
  EXPECT_THAT(visitor.calls, ElementsAre("bare source(t, )"));
  const auto broken = folder.write("broken.xsq", "<SQLUpdateRows>");
  EXPECT_FALSE(visitSQLStepInFile(text(broken), &visitor, &error));
  EXPECT_TRUE(str(error).starts_with(broken + ":1:")) << str(error);
  EXPECT_FALSE(visitSQLStepInFile(text(folder / "missing"), &visitor, &error));
  EXPECT_TRUE(str(error).starts_with(folder / "missing")) << str(error);
}
