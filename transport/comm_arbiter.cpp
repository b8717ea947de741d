// Placeholder until the first implementation lands.
