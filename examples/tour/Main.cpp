#include "Tour.h"

int main() {
    showValues();
    showRecords();
    showObjects();
    showLogging();
}
