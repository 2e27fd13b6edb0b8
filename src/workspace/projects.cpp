// Project builds: a depth-first walk, dependencies first, each project a nested
// run from its makefile's own directory.
#include <cstdlib>

#include "platform/paths.h"
#include "run/make.h"
#include "run/report.h"
#include "workspace/project.h"

void add_project(project **head, char16_t *path) {
    project **link = head;
    while (*link)
        link = &(*link)->next;
    project *p = xcalloc_record<project>();
    p->path = path;
    *link = p;
}

project *find_project(project *projects, const char16_t *path) {
    for (project *p = projects; p; p = p->next)
        if (str_icmp(p->path, path) == 0) return p;
    return nullptr;
}

void add_project_dependency(project *projects, const char16_t *project_path,
                            const char16_t *dependency_path) {
    project *p = find_project(projects, project_path);
    if (!p) return;
    project *dependency = find_project(projects, dependency_path);
    if (!dependency) {
        report(MSG_UNKNOWN_PROJECT + WARNING, p->path, dependency_path);
        return;
    }
    p->dependencies = list_add(p->dependencies, dependency);
}

// A dependency cycle has no build order. The edge that closes it is dropped with
// a warning, so each project is still built once, after the others it needs.
void build_project(project *p) {
    check_stack();
    if (p->visited) return;
    p->in_progress = 1;
    for (void **d = p->dependencies; d && *d; ++d) {
        project *dependency = static_cast<project *>(*d);
        if (dependency->in_progress) {
            char16_t *text = str_printf(u"Project '%ls' depends on '%ls', which depends on it; "
                                        u"that dependency is dropped",
                                        p->path, dependency->path);
            report(MSG_USER_ERROR + WARNING, text);
            free(text);
            continue;
        }
        build_project(dependency);
    }
    p->in_progress = 0;
    p->visited = 1;
    char16_t *saved = enter_project_dir(p->path);
    char16_t *arguments[4] = {str_dup(u"make"), str_dup(u"-f"), str_dup(p->path), nullptr};
    nested_make(3, arguments);
    for (char16_t *a : arguments)
        free(a);
    leave_project_dir(saved);
}

void build_projects(project **head) {
    for (project *p = *head; p; p = p->next)
        build_project(p);
    while (project *p = *head) {
        *head = p->next;
        free(p->path);
        free(p->dependencies);
        free(p);
    }
}

char16_t *enter_project_dir(const char16_t *path) {
    char16_t *dir = dir_of_path(path);
    if (!dir) return nullptr;
    char16_t *saved = current_dir();
    if (const uint32_t failed = change_dir(dir)) report(failed + WARNING);
    free(dir);
    return saved;
}

void leave_project_dir(char16_t *saved) {
    if (!saved) return;
    if (const uint32_t failed = change_dir(saved)) report(failed + WARNING);
    free(saved);
}
