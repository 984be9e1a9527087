#pragma once

// The chapters of doc/pieces.md, which shows pieces of them.
void showValues();
void showRecords();
void showStores();
void showObjects();
void showLogging();
void showTasks();
void showScripts();
void showProcesses();
// What that starts the program again for.
void beChild();
