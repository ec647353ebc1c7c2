#pragma once
// A fresh resource store per test: every file and tool is dropped around each test, and
// HOME points into a temporary folder so that the default user file lands there.

#include "resource/p_api.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <string>
#include <vector>

class T_resource_file;
class T_resource_ident;

class ResourceTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Path of `name` in the test's temporary folder.
    std::string path(const std::string& name) const;
    // Writes `content` to `name` in the temporary folder; returns its path.
    std::string write(const std::string& name, const std::string& content) const;
    // The value of a resource, or "<none>".
    static std::string lookup(const char* tool, const char* name);
    // load_resources, returning what it wrote on stderr.
    static std::string loadCapturingErrors(const char* product, const char* user,
                                           const char* expl);
    // The texts of the lines of a file, in order.
    static std::vector<std::string> lineTexts(const T_resource_file* file);
    static T_resource_ident* ident(const char* tool, const char* name);

private:
    QTemporaryDir dir_;
    std::string savedHome_;
    bool hadHome_ = false;
};
