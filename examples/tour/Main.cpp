#include "Tour.h"

int main() {
    showValues();
    showRecords();
    showStores();
    showObjects();
    showLogging();
}
