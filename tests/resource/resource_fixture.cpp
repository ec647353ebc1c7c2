#include "resource/resource_fixture.h"

#include "common/testutil.h"
#include "resource/p_file.h"
#include "resource/p_line.h"
#include "resource/p_mana.h"
#include "resource/p_tool.h"

#include <stdlib.h>

namespace {

void dropEverything() {
    delete_explicit_resources();
    delete_user_resources();
    delete_zendrel_resources();
    delete_all_resources();
}

} // namespace

void ResourceTest::SetUp() {
    ASSERT_TRUE(dir_.isValid());
    const char* home = getenv("HOME");
    hadHome_ = home != nullptr;
    savedHome_ = hadHome_ ? home : "";
    setenv("HOME", dir_.path().toLocal8Bit().constData(), 1);
    init_resource_manager();
    dropEverything();
}

void ResourceTest::TearDown() {
    dropEverything();
    if (hadHome_)
        setenv("HOME", savedHome_.c_str(), 1);
    else
        unsetenv("HOME");
}

std::string ResourceTest::path(const std::string& name) const {
    return dir_.filePath(QString::fromStdString(name)).toStdString();
}

std::string ResourceTest::write(const std::string& name, const std::string& content) const {
    const std::string file = path(name);
    testutil::writeFile(QString::fromStdString(file), QByteArray::fromStdString(content));
    return file;
}

std::string ResourceTest::lookup(const char* tool, const char* name) {
    const char* value = lookup_resource(tool, name);
    return value == nullptr ? "<none>" : value;
}

std::string ResourceTest::loadCapturingErrors(const char* product, const char* user,
                                              const char* expl) {
    testing::internal::CaptureStderr();
    load_resources(product, user, expl);
    return testing::internal::GetCapturedStderr();
}

std::vector<std::string> ResourceTest::lineTexts(const T_resource_file* file) {
    std::vector<std::string> texts;
    if (file == nullptr)
        return texts;
    for (const T_resource_item* item = file->first_line; item != nullptr; item = item->next)
        texts.push_back(static_cast<const T_resource_line*>(item)->value->chars);
    return texts;
}

T_resource_ident* ResourceTest::ident(const char* tool, const char* name) {
    T_resource_tool* owner = get_resource_manager()->get_tool(tool);
    return owner == nullptr ? nullptr : owner->get_resource(name);
}
