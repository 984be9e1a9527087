#include "Pieces.h"

int main(int argc, char**) {
    if (argc > 1) return beChild(), 0; // started by showProcesses()
    showValues();
    showRecords();
    showStores();
    showObjects();
    showLogging();
    showTasks();
    showScripts();
    showProcesses();
}
