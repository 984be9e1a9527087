#include "Pieces.h"

#include "kiv/core/SmartPointer.h"
#include "kiv/store/CacheStore.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/store/ScopedTransaction.h"

#include <iostream>

namespace {

// Adds a patient, and a study of it when there is one.
bool addPatient(const kiv::Item& patients, const char* name, int study) {
    kiv::ScopedTransaction transaction(patients);
    kiv::Item patient = patients;
    patient.add(name);
    patient.store("born 1972");
    if (study < 0) return false; // nothing has happened

    patient.add("studies");
    patient.add(study);
    patient.store("phantom");
    transaction.commit();
    return true;
}

} // namespace

void showStores() {
    const auto store = kiv::makeObject<kiv::MemoryStore>(true);
    kiv::Item patients(store.get());
    patients.add("patients");
    addPatient(patients, "Roe", 12);
    addPatient(patients, "Doe", 7);
    if (!addPatient(patients, "Poe", -1)) std::cout << "Poe has no study\n";

    kiv::Item patient;
    for (bool more = patients.child(patient); more; more = patient.next())
        std::cout << patient.asBrowsableString() << ": " << patient.fetch()->asBrowsableString() << '\n';

    kiv::Item key;
    for (bool more = store->first(key); more; more = store->next(key, key)) {
        const kiv::Item* value = store->get(key);
        std::cout << key.asString() << ' ' << value->asString() << '\n';
    }

    const auto cache = kiv::makeObject<kiv::CacheStore>(store.get());
    patients.setStore(cache.get());
    for (int i = 0; i < 3; ++i) patients.exists();
    std::cout << cache->getHitCount() << " of 3 times the cache knew\n";
}
