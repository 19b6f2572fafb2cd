#include "game/Chemistry.hpp"

#include "nerox/Assert.hpp"

#include <cmath>
#include <mutex>
#include <shared_mutex>
#include <sstream>
#include <utility>

namespace game {

namespace {

/// Kilograms per atomic mass unit.
constexpr double kilogramsPerAtomicMassUnit = 1.6605402e-27;
/// Radius of one atom in metres, for the liquid density.
constexpr double atomRadius = 9.2e-11;
/// (4/3)π: the volume of a sphere per cubed radius.
constexpr double sphereVolumePerCubedRadius = 4.1887902047863905;

bool IsUpperLetter(char c) {
    return c >= 'A' && c <= 'Z';
}
bool IsLowerLetter(char c) {
    return c >= 'a' && c <= 'z';
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

} // namespace

/// The composition of a formula, or the empty composition if any part of it is bad.
///
/// The formula is read as repeated whole-text matches of the ECMAScript pattern
///   ^([A-Z][a-z]{0,2})([0-9]*)([A-Z].*$|$)
/// each match giving one entry (symbol, count) and the third group being the text
/// left for the next match. The pattern is matched by hand, with the same outcome for
/// every text: the symbol is an upper-case letter with at most two lower-case letters,
/// the count is every digit that follows (1 when there is none), and the next character,
/// if any, must begin the next symbol. So any character that is not an ASCII letter or
/// digit (line breaks, spaces, brackets, bytes above 127) voids the formula. Matching by
/// hand keeps the stack flat for texts of any length (a backtracking matcher recurses
/// once per character) and reads the text once instead of once per entry.
///
/// The count wraps modulo 256, digit by digit, so a digit run of any length gives the
/// low 8 bits of its decimal value. An unknown symbol voids the formula.
static std::vector<std::tuple<uint8_t, uint8_t>> GetElementsFromFormula(std::string const& formula) {
    std::vector<std::tuple<uint8_t, uint8_t>> entries;
    size_t const length = formula.size();
    size_t position = 0;
    do {
        // Group 1: the symbol. Past the first entry this also checks that group 3
        // begins with an upper-case letter.
        if (position >= length || !IsUpperLetter(formula[position])) return {};
        size_t const symbolStart = position++;
        while (position < length && position - symbolStart < 3 && IsLowerLetter(formula[position])) ++position;
        std::string const symbol = formula.substr(symbolStart, position - symbolStart);

        // Group 2: the count.
        unsigned count = 0;
        bool hasDigits = false;
        while (position < length && IsDigit(formula[position])) {
            count = (count * 10 + static_cast<unsigned>(formula[position] - '0')) & 0xFFu;
            hasDigits = true;
            ++position;
        }
        if (!hasDigits) count = 1;

        auto const found = Element::elementsBySymbol.find(symbol);
        if (found == Element::elementsBySymbol.end() || found->second == nullptr) return {};
        entries.emplace_back(found->second->number, static_cast<uint8_t>(count));
    } while (position < length);
    return entries;
}

// The tables, in the order in which they depend on each other: the molecule table is
// parsed from its keys, which needs elementsBySymbol, which points into elements.
// They are all defined in this file, so they are built top to bottom at load.

nerox::SharedMutex Molecule::_moleculesMutex;
nerox::SharedMutex Molecule::_liquidMoleculesMaxDensityMutex;

std::unordered_map<std::string, double> const Molecule::gasMoleculesIndexOfRefraction = {
    {"H", 1.000132},   {"He", 1.000035},  {"Ne", 1.000067},  {"F", 1.000195},     {"O", 1.000271},    {"Ar", 1.000281},
    {"N", 1.000298},   {"Kr", 1.000427},  {"Xe", 1.000702},  {"Cl", 1.000773},    {"Se", 1.000895},   {"Hg", 1.000933},
    {"Te", 1.000991},  {"S", 1.001111},   {"Br", 1.001132},  {"P", 1.001212},     {"As", 1.001552},   {"Zn", 1.002},
    {"CO", 1.000338},  {"CO2", 1.000449}, {"CH4", 1.000444}, {"NH3", 1.000376},   {"C6H6", 1.001762}, {"CS2", 1.001481},
    {"HCl", 1.000447}, {"NO", 1.000297},  {"N2O", 1.000516}, {"C5H12", 1.000686}, {"SO2", 1.000686},  {"H2O", 1.000261},
};

std::unordered_map<std::string, double> Molecule::liquidMoleculesMaxDensity = {
    {"H2", 100.0}, {"CH4", 400.0}, {"H2O", 1000.0}, {"O2", 1600.0}, {"CO2", 1600.0},
};

// Krypton (84.798) and rubidium (84.468) are a unit off a current chart on purpose:
// molar masses and densities in saved worlds rest on these values.
std::vector<Element> const Element::elements = {
    {0, "_", "", 0.0, {}},
    {1, "H", "Hydrogen", 1.008, {+1}},
    {2, "He", "Helium", 4.003, {}},
    {3, "Li", "Lithium", 6.941, {+1}},
    {4, "Be", "Berylium", 9.012, {+2}},
    {5, "B", "Boron", 10.811, {+3}},
    {6, "C", "Carbon", 12.011, {+4, -4}},
    {7, "N", "Nitrogen", 14.007, {+5, -3}},
    {8, "O", "Oxygen", 15.999, {-2}},
    {9, "F", "Fluorine", 18.998, {-1}},
    {10, "Ne", "Neon", 20.18, {}},
    {11, "Na", "Sodium", 22.99, {+1}},
    {12, "Mg", "Magnesium", 24.305, {+2}},
    {13, "Al", "Aluminium", 26.982, {+3}},
    {14, "Si", "Silicon", 28.086, {+4}},
    {15, "P", "Phosphorus", 30.974, {+5, +3, -3}},
    {16, "S", "Sulfur", 32.066, {+6, -2}},
    {17, "Cl", "Chlorine", 35.453, {-1}},
    {18, "Ar", "Argon", 39.948, {}},
    {19, "K", "Potassium", 39.098, {+1}},
    {20, "Ca", "Calcium", 40.078, {+2}},
    {21, "Sc", "Scandium", 44.956, {+3}},
    {22, "Ti", "Titanium", 47.867, {+4}},
    {23, "V", "Vanadium", 50.942, {+5, +4, +3}},
    {24, "Cr", "Chromium", 51.996, {+6, +3, +2}},
    {25, "Mn", "Manganese", 54.938, {+7, +4, +2}},
    {26, "Fe", "Iron", 55.845, {+3, +2}},
    {27, "Co", "Cobalt", 58.933, {+3, +2}},
    {28, "Ni", "Nickel", 58.693, {+2}},
    {29, "Cu", "Copper", 63.546, {+2, +1}},
    {30, "Zn", "Zinc", 65.38, {+2}},
    {31, "Ga", "Gallium", 69.723, {+3}},
    {32, "Ge", "Germanium", 72.631, {+4}},
    {33, "As", "Arsenic", 74.922, {+5, +3}},
    {34, "Se", "Selenium", 78.971, {+4, -2}},
    {35, "Br", "Bromine", 79.904, {+5, -1}},
    {36, "Kr", "Krypton", 84.798, {}},
    {37, "Rb", "Rubidium", 84.468, {+1}},
    {38, "Sr", "Strontium", 87.62, {+2}},
    {39, "Y", "Yttrium", 88.906, {+3}},
    {40, "Zr", "Zirconium", 91.224, {+4}},
    {41, "Nb", "Niobium", 92.906, {+5}},
    {42, "Mo", "Molybdenum", 95.95, {+6, +4}},
    {43, "Tc", "Technetium", 98.907, {+7, +4}},
    {44, "Ru", "Ruthenium", 101.07, {+4, +3}},
    {45, "Rh", "Rhodium", 102.906, {+3}},
    {46, "Pd", "Palladium", 106.42, {+4, +2}},
    {47, "Ag", "Silver", 107.868, {+1}},
    {48, "Cd", "Cadmium", 112.414, {+2}},
    {49, "In", "Indium", 114.818, {+3}},
    {50, "Sn", "Tin", 118.711, {+2, -4}},
    {51, "Sb", "Antimony", 121.76, {+3}},
    {52, "Te", "Tellurium", 127.6, {+4}},
    {53, "I", "Iodine", 126.904, {+5, -1}},
    {54, "Xe", "Xenon", 131.294, {}},
    {55, "Cs", "Cesium", 132.905, {+1}},
    {56, "Ba", "Barium", 137.328, {+2}},
    {57, "La", "Lanthanum", 138.905, {+3}},
    {58, "Ce", "Cerium", 140.116, {+3}},
    {59, "Pr", "Praseodymium", 140.908, {+3}},
    {60, "Nd", "Neodymium", 144.243, {+3}},
    {61, "Pm", "Promethium", 144.913, {+3}},
    {62, "Sm", "Samarium", 150.36, {+3}},
    {63, "Eu", "Europium", 151.964, {+3}},
    {64, "Gd", "Gadolinium", 157.25, {+3}},
    {65, "Tb", "Terbium", 158.925, {+3}},
    {66, "Dy", "Dysprosium", 162.5, {+3}},
    {67, "Ho", "Holmium", 164.93, {+3}},
    {68, "Er", "Erbium", 167.259, {+3}},
    {69, "Tm", "Thulium", 168.934, {+3}},
    {70, "Yb", "Ytterbium", 173.055, {+3}},
    {71, "Lu", "Lutetium", 174.967, {+3}},
    {72, "Hf", "Hafnium", 178.49, {+4}},
    {73, "Ta", "Tantalum", 180.948, {+5}},
    {74, "W", "Tungsten", 183.84, {+6, +4}},
    {75, "Re", "Rhenium", 186.207, {+5, +4, +3}},
    {76, "Os", "Osmium", 190.23, {+4}},
    {77, "Ir", "Iridium", 192.217, {+4, +3}},
    {78, "Pt", "Platinum", 195.085, {+4, +2}},
    {79, "Au", "Gold", 196.967, {+3}},
    {80, "Hg", "Mercury", 200.592, {+2, +1}},
    {81, "Tl", "Thallium", 204.383, {+3, +1}},
    {82, "Pb", "Lead", 207.2, {+2}},
    {83, "Bi", "Bismuth", 208.98, {+3}},
    {84, "Po", "Polonium", 208.982, {+4}},
    {85, "At", "Astatine", 209.987, {-1}},
    {86, "Rn", "Radon", 222.018, {}},
    {87, "Fr", "Francium", 223.02, {+1}},
    {88, "Ra", "Radium", 226.025, {+2}},
    {89, "Ac", "Actinium", 227.028, {+3}},
    {90, "Th", "Thorium", 232.038, {+4}},
    {91, "Pa", "Protactinium", 231.036, {+5}},
    {92, "U", "Uranium", 238.029, {+6}},
    {93, "Np", "Neptunium", 237.048, {+7}},
    {94, "Pu", "Plutonium", 244.064, {+7, +4}},
    {95, "Am", "Americium", 243.061, {+3}},
    {96, "Cm", "Curium", 247.07, {+3}},
    {97, "Bk", "Berkelium", 247.07, {+3}},
    {98, "Cf", "Californium", 251.08, {+3}},
    {99, "Es", "Einsteinium", 254.0, {+3}},
    {100, "Fm", "Fermium", 257.095, {+3}},
    {101, "Md", "Mendelevium", 258.1, {+3}},
    {102, "No", "Nobelium", 259.101, {+3}},
    {103, "Lr", "Lawrencium", 262.0, {+3}},
    {104, "Rf", "Rutherfordium", 261.0, {+4}},
    {105, "Db", "Dubnium", 262.0, {0}},
    {106, "Sg", "Seaborgium", 266.0, {0}},
    {107, "Bh", "Bohrium", 264.0, {0}},
    {108, "Hs", "Hassium", 269.0, {0}},
    {109, "Mt", "Meitnerium", 268.0, {0}},
    {110, "Ds", "Darmstadtium", 269.0, {0}},
    {111, "Rg", "Roentgenium", 272.0, {0}},
    {112, "Cn", "Copernicium", 277.0, {0}},
    {113, "Uut", "Ununtrium", 0.0, {0}},
    {114, "Fl", "Flerovium", 289.0, {0}},
    {115, "Uup", "Ununpentium", 0.0, {0}},
    {116, "Lv", "Livermorium", 298.0, {0}},
    {117, "Uus", "Ununseptium", 0.0, {0}},
    {118, "Uuo", "Ununoctium", 0.0, {0}},
};

std::unordered_map<std::string, Element const*> const Element::elementsBySymbol = [] {
    std::unordered_map<std::string, Element const*> bySymbol;
    for (Element const& element : elements) bySymbol.emplace(element.symbol, &element);
    return bySymbol;
}();

// Nitrogen, fluorine and chlorine stand as atoms, hydrogen and oxygen as H2 and O2.
std::unordered_map<std::string, Molecule> Molecule::molecules = [] {
    static char const* const formulas[] = {
        "H2", "N",    "He", "Ne", "F",  "Ar", "Xe",  "Cl",  "Se",   "O2",  "CO2", "H2O", "Si",  "Al",    "Fe",  "Ca",
        "Na", "NaCl", "K",  "Mg", "Ti", "CO", "CH4", "NH3", "C6H6", "CS2", "HCl", "NO",  "N2O", "C5H12", "SO2",
    };
    std::unordered_map<std::string, Molecule> table;
    for (char const* formula : formulas) table.emplace(formula, Molecule(GetElementsFromFormula(formula)));
    return table;
}();

Molecule::Molecule(std::vector<std::tuple<uint8_t, uint8_t>> composition) : composition(std::move(composition)) { }

Molecule::Molecule(std::string const& name) {
    {
        std::shared_lock lock(_moleculesMutex);
        auto const found = molecules.find(name);
        if (found != molecules.end()) {
            composition = found->second.composition;
            return;
        }
    }
    // A bare element symbol of one or two characters is not remembered; three-letter
    // symbols go through the parser like any formula.
    if (name.size() <= 2) {
        auto const found = Element::elementsBySymbol.find(name);
        if (found != Element::elementsBySymbol.end() && found->second != nullptr) {
            composition.emplace_back(found->second->number, uint8_t{1});
            return;
        }
    }
    // Parsed outside the lock; a thread that parsed the same formula meanwhile stored the same result.
    composition = GetElementsFromFormula(name);
    std::unique_lock lock(_moleculesMutex);
    molecules.insert_or_assign(name, Molecule(composition));
}

double Molecule::Mass() const {
    double mass = 0.0;
    for (auto const& [number, count] : composition) {
        if (number >= Element::elements.size()) continue;
        mass = std::fma(count * Element::elements[number].mass, kilogramsPerAtomicMassUnit, mass);
    }
    return mass;
}

double Molecule::GetMolarMass() const {
    double grams = 0.0;
    for (auto const& [number, count] : composition) {
        if (number >= Element::elements.size()) continue;
        grams += count * Element::elements[number].mass;
    }
    return grams / 1000.0;
}

double Molecule::HeatCapacity() const {
    return 1.0;
}

double Molecule::LiquidIndexOfRefraction() const {
    return 1.33;
}

double Molecule::SolidIndexOfRefraction() const {
    return 1.45;
}

double Molecule::GaseousIndexOfRefraction() const {
    std::string const key = Formula();
    auto found = gasMoleculesIndexOfRefraction.find(key);
    if (found != gasMoleculesIndexOfRefraction.end()) return found->second;
    // H2 reads H, O2 and O3 read O.
    if (composition.size() == 1 && key.size() >= 2) {
        auto const [number, count] = composition.front();
        if ((count == 2 || count == 3) && number < Element::elements.size()) {
            found = gasMoleculesIndexOfRefraction.find(Element::elements[number].symbol);
            if (found != gasMoleculesIndexOfRefraction.end()) return found->second;
        }
    }
    return 1.001;
}

double Molecule::GetMaximumLiquidDensity() const {
    std::string const key = Formula();
    {
        std::shared_lock lock(_liquidMoleculesMaxDensityMutex);
        auto const found = liquidMoleculesMaxDensity.find(key);
        if (found != liquidMoleculesMaxDensity.end()) return found->second;
    }
    // Each entry is one sphere whose radius is the atom count times the atom radius.
    double atomicVolume = 0.0;
    for (auto const& [number, count] : composition) {
        if (number >= Element::elements.size()) continue;
        atomicVolume = std::fma(sphereVolumePerCubedRadius, std::pow(count * atomRadius, 3.0), atomicVolume);
    }
    NEROX_ASSERT(atomicVolume > 0);
    double const density = Mass() / atomicVolume;
    std::unique_lock lock(_liquidMoleculesMaxDensityMutex);
    liquidMoleculesMaxDensity[key] = density;
    return density;
}

std::string Molecule::Formula() const {
    std::ostringstream text;
    for (auto const& [number, count] : composition) {
        if (number >= Element::elements.size()) break;
        text << Element::elements[number].symbol;
        if (count > 1) text << static_cast<unsigned>(count);
    }
    return text.str();
}

bool Molecule::HasUsableComposition() const {
    for (auto const& [number, count] : composition)
        if (count != 0 && number < Element::elements.size()) return true;
    return false;
}

} // namespace game
