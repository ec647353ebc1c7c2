// Feeds arbitrary bytes to the resource manager as a resource file, then works the store
// over: every source, a second analysis, lookups, sets, deletions, a save and a full
// teardown. The interest is in the links between files, lines, idents and comments.

#include "resource/p_api.h"
#include "resource/p_file.h"
#include "resource/p_line.h"
#include "resource/p_mana.h"
#include "resource/p_resour.h"
#include "resource/p_synt.h"
#include "resource/p_tool.h"

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

namespace {

std::string work_dir;
std::string input_path;
FILE* sink = 0;

struct resource_key {
    std::string tool;
    std::string name;
};

std::vector<resource_key> stored_keys() {
    std::vector<resource_key> keys;
    T_resource_manager* manager = get_resource_manager();
    for (T_resource_item* t = manager->first_tool; t != 0; t = t->next) {
        T_resource_tool* tool = static_cast<T_resource_tool*>(t);
        for (T_resource_item* i = tool->first_ident; i != 0; i = i->next)
            keys.push_back({tool->name->chars, static_cast<T_resource_ident*>(i)->name->chars});
    }
    return keys;
}

void write_input(const uint8_t* data, size_t size) {
    FILE* out = fopen(input_path.c_str(), "wb");
    if (out == 0)
        abort();
    fwrite(data, 1, size, out);
    fclose(out);
}

/* Looks every resource up, changes some and deletes others, steered by the input. */
void work_the_store(const uint8_t* data, size_t size) {
    std::vector<resource_key> keys = stored_keys();
    for (size_t k = 0; k < keys.size(); ++k) {
        const char* tool = keys[k].tool.c_str();
        const char* name = keys[k].name.c_str();
        if (lookup_resource(tool, name) == 0)
            abort();
        uint8_t choice = size == 0 ? 0 : data[k % size];
        if (choice % 3 == 0)
            set_resource(tool, name, lookup_resource(tool, name));
        else if (choice % 3 == 1)
            delete_resource(tool, name);
        else
            set_resource(name, tool, tool);
    }
    std::string text(reinterpret_cast<const char*>(data), size);
    set_resource(text.c_str(), text.c_str(), text.c_str());
    print_resources(sink);
    delete_tool_resources(0);
}

void delete_some_line(T_resource_source source, const uint8_t* data, size_t size) {
    T_resource_file* file = get_resource_manager()->get_file(source);
    if (file == 0 || file->last_line == 0 || size == 0)
        return;
    uint32_t last = static_cast<T_resource_line*>(file->last_line)->number;
    file->delete_line(1 + data[size - 1] % last);
}

/* The only files a run creates: the input, the default user file and their backups. */
void remove_work_dir() {
    const char* names[] = {"/input", "/input~", "/.Zendrel", "/.Zendrel~"};
    for (const char* name : names)
        remove((work_dir + name).c_str());
    remove(work_dir.c_str());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char pattern[] = "/tmp/resource_fuzzer.XXXXXX";
    const char* dir = mkdtemp(pattern);
    if (dir == 0)
        abort();
    work_dir = dir;
    atexit(remove_work_dir);
    setenv("HOME", dir, 1);
    input_path = work_dir + "/input";
    sink = fopen("/dev/null", "w");
    init_resource_manager();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    write_input(data, size);
    const char* path = input_path.c_str();

    load_resources(path, 0, 0);
    delete_some_line(RESOURCE_SOURCE_PRODUCT, data, size);
    work_the_store(data, size);
    load_resources(0, path, path);
    T_resource_file* product = get_resource_manager()->product_file;
    if (product != 0)
        syntax_analysis(product->get_line(1));
    load_resources(path, 0, path);
    delete_some_line(RESOURCE_SOURCE_EXPLICIT, data, size);
    work_the_store(data, size);
    save_resources();

    delete_user_resources();
    delete_zendrel_resources();
    delete_explicit_resources();
    delete_all_resources();
    return 0;
}
