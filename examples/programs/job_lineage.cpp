// Prints the lineage of one job file: example_job_lineage FILE
#include <qvreposres/cpp.h>

#include <iostream>

int main(int argc, char** argv) {
  if (argc != 2)
    return std::cerr << "usage: " << argv[0] << " FILE\n", 2;

  qvreposres::Lineage lineage;
  if (const auto job = lineage.record(argv[1]); !job)
    return std::cerr << job.error() << '\n', 1; // with file, line and column
  const auto xml = lineage.xml();
  if (!xml)
    return std::cerr << xml.error() << '\n', 1;
  std::cout << *xml;
  return 0;
}
