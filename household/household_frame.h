// The household tool hhprog: its entry and the main preparation (settings, protocol, region
// map and types); the phases follow in their own files.
#pragma once

// the main preparation: protocol, settings table, region map and types
void householdPreparation();

// the tool entry of the dispatcher
void hhprog(int count, char** vector);
