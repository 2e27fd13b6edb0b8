// Projects of one workspace and their ordered build.
#pragma once

#include <cstdint>

#include "target/graph.h"

// One per PROJECT statement, in file order.
struct project {
    project *next;         // next project in file order
    char16_t *path;        // owned; absolute path of the project's makefile
    ptr_list dependencies; // of project: built first; entries not owned
    uint8_t visited;       // built (set behind its dependencies)
    uint8_t in_progress;   // its dependencies are being built now (cycle guard)
};

// Appends a project; takes ownership of path.
void add_project(project **head, char16_t *path);
// Orders project_path after dependency_path; both texts stay the caller's.
void add_project_dependency(project *projects, const char16_t *project_path,
                            const char16_t *dependency_path);
project *find_project(project *projects, const char16_t *path);
// Builds every project after its dependencies, each once, then releases them.
void build_projects(project **head);
void build_project(project *p);
// Changes into the directory of path; returns the directory to go back to, or null.
char16_t *enter_project_dir(const char16_t *path);
// Goes back to saved and releases it.
void leave_project_dir(char16_t *saved);
