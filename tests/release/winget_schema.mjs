// The schema of winget's manifests, version 1.6.0, for the members that ours use: transcribed from Microsoft's
// published schemas, and stricter, because any other member is an error.
const kWord = '[^.\\s\\\\/:*?"<>|\\x01-\\x1f]{1,32}';
const identifier = { type: 'string', pattern: `^${kWord}(\\.${kWord}){1,7}$`, maxLength: 128 };
const version = { type: 'string', pattern: '^[^\\\\/:*?"<>|\\x01-\\x1f]+$', maxLength: 128 };
const locale = { type: 'string', pattern: '^([a-zA-Z]{2,3}|[iI]-[a-zA-Z]+|[xX]-[a-zA-Z]{1,8})(-[a-zA-Z]{1,8})*$', maxLength: 20 };
const text = (minLength, maxLength) => ({ type: 'string', minLength, maxLength });
const list = (items, maxItems) => ({ type: 'array', items, maxItems, uniqueItems: true });
const object = (properties, required) => ({ type: 'object', properties, required, additionalProperties: false });

/** A manifest of `type`: the common members, and `properties`, of which `required` are mandatory. */
const manifest = (type, properties, required) => object({
  PackageIdentifier: identifier, PackageVersion: version, ...properties,
  ManifestType: { const: type }, ManifestVersion: { const: '1.6.0' },
}, ['PackageIdentifier', 'PackageVersion', 'ManifestType', 'ManifestVersion', ...required]);

const nestedFile = object({ RelativeFilePath: text(1, 512), PortableCommandAlias: text(1, 40) }, ['RelativeFilePath']);

const installer = object({
  Architecture: { enum: ['x86', 'x64', 'arm', 'arm64', 'neutral'] },
  InstallerUrl: { type: 'string', pattern: '^([Hh][Tt][Tt][Pp][Ss]?)://.+$', maxLength: 2048 },
  InstallerSha256: { type: 'string', pattern: '^[A-Fa-f0-9]{64}$' },
}, ['Architecture', 'InstallerUrl', 'InstallerSha256']);

const localeMembers = {
  PackageLocale: locale, Publisher: text(2, 256), PackageName: text(2, 256), License: text(3, 512),
  ShortDescription: text(3, 256), Tags: list(text(1, 40), 16), InstallationNotes: text(1, 10000),
};

/** The schemas by ManifestType. */
export const kSchemas = {
  version: manifest('version', { DefaultLocale: locale }, ['DefaultLocale']),
  installer: manifest('installer', {
    Platform: list({ enum: ['Windows.Desktop', 'Windows.Universal'] }, 2),
    MinimumOSVersion: { type: 'string', pattern: '^\\d{1,5}(\\.\\d{1,5}){0,3}$' },
    InstallerType: { enum: ['msix', 'msi', 'appx', 'exe', 'zip', 'inno', 'nullsoft', 'wix', 'burn', 'pwa', 'portable'] },
    NestedInstallerType: { enum: ['msix', 'msi', 'appx', 'exe', 'inno', 'nullsoft', 'wix', 'burn', 'portable'] },
    NestedInstallerFiles: { type: 'array', items: nestedFile, minItems: 1, maxItems: 1024 },
    Scope: { enum: ['user', 'machine'] },
    ElevationRequirement: { enum: ['elevationRequired', 'elevationProhibited', 'elevatesSelf'] },
    UnsupportedOSArchitectures: list({ enum: ['x86', 'x64', 'arm', 'arm64'] }),
    Dependencies: object({
      PackageDependencies: list(object({ PackageIdentifier: identifier, MinimumVersion: version }, ['PackageIdentifier']), 16),
    }),
    Installers: { type: 'array', items: installer, minItems: 1, maxItems: 1024 },
  }, ['Installers']),
  defaultLocale: manifest('defaultLocale', localeMembers, ['PackageLocale', 'Publisher', 'PackageName', 'License', 'ShortDescription']),
  locale: manifest('locale', localeMembers, ['PackageLocale']),
};
