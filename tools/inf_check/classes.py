"""Setup classes that Windows defines (learn.microsoft.com: "System-defined device setup classes")."""

GUIDS = """
1394 6bdd1fc1-810f-11d0-bec7-08002be2092f            Adapter 4d36e964-e325-11ce-bfc1-08002be10318
AudioEndpoint c166523c-fe0c-4a94-a586-f1a80cfbbf3e   AudioProcessingObject 5989fce8-9cd0-467d-8a6a-5419e31529d4
Battery 72631e54-78a4-11d0-bcf7-00aa00b7b32a         Biometric 53d29ef7-377c-4d14-864b-eb3a85769359
Bluetooth e0cbf06c-cd8b-4647-bb8a-263b43f0f974       CDROM 4d36e965-e325-11ce-bfc1-08002be10318
Camera ca3e7ab9-b4c3-4ae6-8251-579ef933890f          Computer 4d36e966-e325-11ce-bfc1-08002be10318
DiskDrive 4d36e967-e325-11ce-bfc1-08002be10318       Display 4d36e968-e325-11ce-bfc1-08002be10318
Extension e2f84ce7-8efa-411c-aa69-97454ca4cb57       FDC 4d36e969-e325-11ce-bfc1-08002be10318
FloppyDisk 4d36e980-e325-11ce-bfc1-08002be10318      HDC 4d36e96a-e325-11ce-bfc1-08002be10318
HIDClass 745a17a0-74d3-11d0-b6fe-00a0c90f57da        Image 6bdd1fc6-810f-11d0-bec7-08002be2092f
Infrared 6bdd1fc5-810f-11d0-bec7-08002be2092f        Keyboard 4d36e96b-e325-11ce-bfc1-08002be10318
LegacyDriver 8ecc055d-047f-11d1-a537-0000f8753ed1    MTD 4d36e970-e325-11ce-bfc1-08002be10318
Media 4d36e96c-e325-11ce-bfc1-08002be10318           MediumChanger ce5939ae-ebde-11d0-b181-0000f8753ec4
Modem 4d36e96d-e325-11ce-bfc1-08002be10318           Monitor 4d36e96e-e325-11ce-bfc1-08002be10318
Mouse 4d36e96f-e325-11ce-bfc1-08002be10318           Multifunction 4d36e971-e325-11ce-bfc1-08002be10318
MultiportSerial 50906cb8-ba12-11d1-bf5d-0000f805f530 Net 4d36e972-e325-11ce-bfc1-08002be10318
NetClient 4d36e973-e325-11ce-bfc1-08002be10318       NetService 4d36e974-e325-11ce-bfc1-08002be10318
NetTrans 4d36e975-e325-11ce-bfc1-08002be10318        NvmeDisk 75416e63-5912-4dfa-ae8f-3efaccaffb14
PCMCIA 4d36e977-e325-11ce-bfc1-08002be10318          PNPPrinters 4658ee7e-f050-11d1-b6bd-00c04fa372a7
Ports 4d36e978-e325-11ce-bfc1-08002be10318           PrintQueue 1ed2bbf9-11f0-4084-b21f-ad83a8e6dcdc
Printer 4d36e979-e325-11ce-bfc1-08002be10318         Processor 50127dc3-0f36-415e-a6cc-4cb3be910b65
SBP2 d48179be-ec20-11d1-b6b8-00c04fa372a7            SCSIAdapter 4d36e97b-e325-11ce-bfc1-08002be10318
SecurityAccelerator 268c95a1-edfe-11d3-95c3-0010dc4050a5 SecurityDevices d94ee5d8-d189-4994-83d2-f68d7d41b0e6
Sensor 5175d334-c371-4806-b3ba-71fd53c9258d          SmartCardReader 50dd5230-ba8a-11d1-bf5d-0000f805f530
SoftwareComponent 5c4c3332-344d-483c-8739-259e934c9cc8 SoftwareDevice 62f9c741-b25a-46ce-b54c-9bccce08b6f2
System 4d36e97d-e325-11ce-bfc1-08002be10318          TapeDrive 6d807884-7d21-11cf-801c-08002be10318
USB 36fc9e60-c465-11cf-8056-444553540000             USBDevice 88bae032-5a81-49f0-bc3d-a4ff138216d6
Unknown 4d36e97e-e325-11ce-bfc1-08002be10318         Volume 71a27cdd-812a-11d0-bec7-08002be2092f
VolumeSnapshot 533c5b84-ec70-11d2-9505-00c04f79deaf  WPD eec5ad98-8080-425f-922a-dabf3de3f69a
""".split()

NAME_OF = {guid: name for name, guid in zip(GUIDS[::2], GUIDS[1::2])}
GUID_OF = {name.lower(): guid for guid, name in NAME_OF.items()}
