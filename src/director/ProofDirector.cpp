#include "director/ProofDirector.h"

// TODO(director): the director's body lands with its issues.
ProofDirector::ProofDirector(const std::string& component, const std::string& mechanismFile,
                             const std::string& posPath, const std::string& pogPath,
                             const std::string& tempDir,
                             const std::vector<std::string>& installDirs, bool xml,
                             unsigned concurrency, int trace, const std::string& driverFilter,
                             const std::string& poSelector, bool fastOnly)
    : QObject(nullptr), driverFilter(QString::fromStdString(driverFilter)),
      poSelector(QString::fromStdString(poSelector)), posPath(QString::fromStdString(posPath)),
      pogPath(QString::fromStdString(pogPath)), tempDir(QString::fromStdString(tempDir)),
      xml(xml), concurrency(concurrency), trace(trace), fastOnly(fastOnly),
      installDirs(installDirs), component(component) {
    loaded = mechanism::ofFile(QString::fromStdString(mechanismFile), mechanism, installDirs);
}
ProofDirector::~ProofDirector() = default;
bool ProofDirector::isLoaded() const { return loaded; }
std::string ProofDirector::getMechanismName() const { return mechanism.name; }
void ProofDirector::replay() {}
void ProofDirector::stop() {}
