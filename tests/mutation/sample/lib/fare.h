#pragma once

int fare(int stops);
int counted(int most);
int untested();
void careful(bool sure);
