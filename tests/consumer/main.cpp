bool earlyObjectWorks();
bool otherUnitWorks();

int main() { return earlyObjectWorks() && otherUnitWorks() ? 0 : 1; }
