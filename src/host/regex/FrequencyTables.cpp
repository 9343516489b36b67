#include "host/regex/FrequencyTables.h"

namespace Corvane::Regex {

namespace {

constexpr PairTable kTextPairs = {
    "jgggjjgkgliegekhlefeiikjhkifkjljmlozqqlnluzkpu",
    "fjihdjjjeilegjfjlggjekklgkfhijkhljozooinjzznpz",
    "ekijeklegmggikdjmgieglmljmggijkjkjmtroilizzloz",
    "fjjhcjjkellijjgklghihkjljmgciiijjilsmlhkitzloz",
    "gigfhiilimlghejijeegkhjhjlidiijjjjlsmmikizzoow",
    "fjjiffjlellhjjeilfehhljjjlfejklmmjmsnojmizzlqz",
    "gjijdjigflliiggilfgigjkkjlidhhjhjjlqjmgjhzzmpz",
    "djjiclllelljjjejlhjgiljlikiejjjklklzmmjljzzmqz",
    "ghfggggllljfgcfilheelgmjmijgmlllnkpvtqlojvzmoz",
    "eiihdiiigigiiiegiihieiiiiheijjpkmlnzpzmkjpwkqz",
    "gjgidjhjfjjhiggijiehiijkijgdiiijkilnmlhihzylpz",
    "ekjgdjljdmjeileimlgghjllgliejijjjjmsnmikizzloz",
    "dgghdlklflljgjfflkhjhjlmilieiijijkloimiljszloz",
    "gigeehekgliilifkmlfehijmiljdjijjkkmsnljlizzlnz",
    "jiggjgikiligfdhgmeggeigllljekjklkkptrojmjzzmrt",
    "ekhiejiggljfijegjegggkjjiligkjjjhimzmoiiiszlnz",
    "higiiiiiiiigiigiighgciiiiiehjjijmjlzoogjizwynz",
    "fkhhdjglemiihgeilhgggillhmjejijkkjmtnmilizzkpz",
    "gjgiekkhfmjjikggkigegmkmimjdigihijlrplhkizzmoz",
    "flikejkdemmijmeimggghljliljdiijjjjmrmmhkiuzlov",
    "ggfigihjgljfgekgleeejjkhkkhgljlknmoulmlnjzzmou",
    "ejkicijjdkkjjjfjijjjjjijjjghkjjiokmzooilizzlqs",
    "ejjiejjedjkjigejkfhjjjgikkgejiklmlmzmojnjzzmqz",
    "gjgigiijgjjiijighjieijjfgjdejhjhjflonjgjizypsz",
    "ijjjgjlkikjiiidgkifhikjkkigcgghkiilrokijhzzmnz",
    "eiiicjihgiigiifjiihhgihiigegiijhpjmqlnolhzwmqz",
    "iiiiihkklkjjjkkjlkkkkkkiklbegggihijsmlijguzojz",
    "fggghgiifkjighgglhfeiiglimgzeloklijjhjljfwzgjo",
    "ijjjljljilljjljjmkiilljmlmjccmrnqillepllgvzijo",
    "ijegijjhikjjiifiljiijllllmddeflimrzptmppjzzjjs",
    "lokomlomlqznlmzozmmmomnqqzebelnzzjpszizmlzymlz",
    "gggfifiigljffihfjgeggihjlleiglqfjqromomlgzynkz",
    "lljkmllmloqklkllqjkmklkqnsdbenzeiliozonjizyksz",
    "ihihiiikioliiiiiniiihjkmlmeehltpobnzgrpljzzlpt",
    "kllijkmlnmmmmlmmolkljnmmfodcimzknlcoighgizxyzz",
    "ghgggijfjgigfiggkhgggokjgjeejxygyllgonwhizvwxz",
    "mmllolmnlopmmlmlpnkmomossumbfooonommbprjlzzpmz",
    "iihiihjiikkiiiiimigigjijmmhdegeijjlljgmgezwioq",
    "ggggigiigmkhhiihlgfgiijlqmiljslqzrzzzzbomzzztz",
    "ikjhijjnholjjgljmjhjhjmkoledcnjoommnmkofjqyikz",
    "ijhiiiijhljhiijilighjikkmmfceiiijikoojkgdtzkls",
    "pihhorrqitsqqpprhqgpqsststpiissshrguqthtibpirv",
    "mnmnmoonoqqmmljntlmlooqrqsleiklnkmuusoullvcccn",
    "zzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzazzz",
    "zzzzzzzzzzzzzzzzzzzzzzzzzzzyzzzzzzzzzzzzzzazzz",
    "stssrtttsvvstsstvssstuuvuvrqstvuvtvwtwtvtxattx",
    "gihhfiiigljhhggilggghjjjjlgegijjjilmhlikhtghiq",
};

constexpr PairTable kRawTextPairs = {
    "fgggjjeigjifgejijfgfiighijfgkljknkjojmmmjupqtz",
    "gihigighghifggeiifgigigighdjjlnjolkpjmlljsotwz",
    "dgiifjgggigggiejiiigikijijeijlmjmliqsmlkjrrqwz",
    "giggeighejjiijgigihgijiihjeejjkjkiinhfjjjssqvz",
    "giggigijhkjghejijefgjiigjjgejjjjhiglijjijursxx",
    "fhhigfiifiihiieiiggggiihhiegjlmkojgmnjlijsrovz",
    "ghghggigdiigighhigiiggjihheghkmjijinjkkljtqrzz",
    "eghhdjiifhihihgiigieiiijhifgjlljilholmlljsqqwz",
    "ggefhhehijjggegikiggjgjjjhgilmmlpllqmnmmjtsqxz",
    "ggghgighghhgghgghhghgghhggdminsjqlmpqponjsoszt",
    "ghggfififghgihhghighhhiihgeghjlikjjmjjliiprozz",
    "fighejjieiifhifhjjgggiiighfgjjjjljknjkkjjsrquz",
    "egggehgifhighhggiighggiiihehjkliilkljljljsqpzz",
    "ghgffieihiihiigiiigdihijiigfjjkjhiimjjljjrsqtz",
    "iiggiggjhiifgdhgjehgfihjiiggklljkjlnsmllisqsvz",
    "egghfjghggigiighiggghjjeihghjlmjhjkohkkhjsqsuz",
    "gghhhifihifgihehhhggeghhhielimmjqmlomokmirqzzz",
    "fjhgeigiejihhifhjigghijjhjgfjjkjhhimgikjjttpvz",
    "gghieiiifiijiigfjigegjijiigeihjiiihlmljljtqqzz",
    "fiigejjefjjiijfhjghghjjjfjgfjjliighmjjjhjvsqvx",
    "gggggigigiiggeggifefiiiihgeiilmjomlolomnjvrqtv",
    "gfggeiihfhihhihiiihhghhiggegilmjmmjpgnlmjqrqtv",
    "ghhhfgggeiighggihgiiiggghhdijimjkllopmmnjzrquz",
    "hhiiiiihggigggighgieigighhegjjmjmiloqijeizptzz",
    "gfihijiihiieghggjigijjfghgefijjjgkjmimllirtsuz",
    "giggfighghigghghiigghhefggelimojtlmpqpqojsrvzz",
    "hhhghhiihihgihigiiiiiiiiihchhijijjhmkikiirsttz",
    "ghgiihjihllihiiiliggjjhljogbilrlmjjgjlmjgqsnpq",
    "hhghiijigjjiiiiijiihjjjjiigdemokmgieelmjhmonpr",
    "iieggihhiikjihgglihijmiklldeegmioqjgzmomkztqzz",
    "illpmmlimpromnqmzlhlolnrrzebekjzsijizlqjhozqrz",
    "fggfhgighjjhhiifjifehigijjekinsekploimnjiszqzr",
    "iiimllnkjoojlhjjrjjjjjltoqdbhnzelmijzlpgjqzszz",
    "gggghgjhiomhijjinhefikgnmneghktlqcilhskmjtzrzt",
    "ghgggjommoqnmlontnnnjqoqlqcierzqplfrpcijmtzzzz",
    "geiflhoghmnjhligmjgeknllnqllquzcqslnsuulgrzzzz",
    "kljlllmkjmmllllkoljjlllqmojdclmpomiceqpikrqnpr",
    "jhgijgkgjpmigklhqkjgijilonechlkjokkrdgjijpzvts",
    "hgggigjiglkhhhihjhghiiilnmfmiojmpjintkcoltrzzz",
    "iiiiigikjnmihgjiiljijkjnmmeceokmplihneoeimqrqz",
    "hihhiiiifjjhhiifjigijiijjjeeejiilhjjjjkgenmmst",
    "jmlkjvmmtmvmllkulmjmmvvvvvgglwxvivjmvvlhbemyyy",
    "iijljljjlkmjjijjljjilmmknmkfjlkzkmziqoomiqcceg",
    "oqqmwyxywzzxyxmqzqqwoyyyyymgillmmzznqozqmzbcjl",
    "tvlumvvvtwwvvnjvwnnuvvvwvwnilkywwwwlwwxjlzafgi",
    "stttktttsuutttltvktltuuuturgkvwvlulvuvvlhybehf",
    "ghgggighgiighgghigggiiiiiieehjkijiijiijjiqmmqs",
};

constexpr PairTable kUriPairs = {
    "ghfghigiejigeeigiggghiiiiiezjhzhsijzzzkjmzzzzz",
    "fgghfhhifiigghggiggigihihhdzhgzizilzzzjkmzzzzz",
    "giiigiiggiggihcijghggjiiijezjioirijzzzljmzzzzz",
    "gihhehiifiiiihgiihhghiiihidzhhogrhhzzzjjmzzzrz",
    "gggghhiiiijghejijeefigihiifzjfqgphizzzkjkzzzzz",
    "ggghggihfiihiiegihgghihihidzhizizjlzzzkimzzzzz",
    "hiiieiihfiighgfiifhigiiiiifzfgzeqijzzzjjizzzzz",
    "giiigiiigiiiiighiiibgiijiigzljzjzkjzzzlklzzzzz",
    "ggfggghjijiegeghjhefihiijigzlhoizkkzzzljnzzzzz",
    "fghgghghhghggggfggggggghggezjjzjyjlzzzilozzzzz",
    "gghhfhhigihhhhghhgggghihhhezjgzfqhkzzzjilzzzzz",
    "giiieijieijggigiiihfiiijgifzggrgzgizzzkhlzzzzz",
    "dihhfjgjgjjfiihejiihiiiiiifzghremjizzziimzzzzz",
    "ggigegfigihhiggiiifehihihigzjfzgmijzzzkkkzzzzz",
    "iiihihgjiiigdeggjeggghhijjgzlhpghjlzzzllnzzzzz",
    "gjihgjhggjjgigfhjgdhijijjjgzjjzgdijzzzjfnzzzzz",
    "ghhhghhhghgehggihgghggghggezjiziyiizzziimzzzzz",
    "figheieifjhghhfhjiggghijiigzkgzgpijzzzjjkzzzzz",
    "hjgifjjggjjiijghhhhehjijijfzjesfehlzzzkijzzzzz",
    "gjjigjihgjjigjgdjggchjjjijgzjgqgpikzzzlklzzzzz",
    "ggghghgihighhgieheefiiihiiezjizgmijzzzllpzzzzz",
    "ggggehghfhhhhhghihhihghhghezjizjyilzzzjlozzzzz",
    "hiihghihghiihhgiiggiihciiiezlezizjjzzzjlmzzzzz",
    "ggghgghfgghggggghgihgghhggezjgziyglzzzjjmzzzzz",
    "gghhhhhhhhghggggihggghghhgdziezhyihzzzjijzzzzz",
    "ghggghgggghgggghhghgggggggezkizhykkzzzlmqzzzzz",
    "hghhhgjjjijiiijijiiiiiiiiibzigmgnimzzziilzzzzz",
    "hiiihiiihjjiiihhjihgijijjjemjimgjjkmmmkjlmmmmm",
    "wywxwmxawyyxfwwwyxwwxyyyyyuzywzwyyzzzzzzzzzzzz",
    "gicfgjgggijihgefjggihlhjljezlyzyzzzzzzpzrzzzzz",
    "qriqpgqgjssqgqqqiqqpqjqsssbvfqvpsstvvvtstvvvvv",
    "gighhhiigliggihgjigggjgikjeziqzczqzzzzmilzzozo",
    "kmmkllmoollljmjkqkkmhylqnmizoxzayylzzzzjqzzzzz",
    "gggeghjhhjjhihggmigggihlljcznwzoymzzzzkkzzzzzz",
    "gighgijgjiliikigligggjihijczgmzjwkfzzzyhkzzzzz",
    "hiiihiiihjjiiihhjihgijijjjemjimgjjkmmmkjlmmmmm",
    "hiiihiiihjjiiihhjihgijijjjemjimgjjkmmmkjlmmmmm",
    "hiiihiiihjjiiihhjihgijijjjemjimgjjkmmmkjlmmmmm",
    "ggghihihgjiheiigjighijijjiczgmzlwjyzzzgjzzzzzz",
    "djgiggiihljggiigjighfjjkjjcziwzvyymzzzlikzzzzz",
    "gifhiiegimkdgihejjgjjjiljvezeimhvvwzzzwggzzzzz",
    "hiiihiiihjjiiihhjihgijijjjemjimgjjkmmmkjlmmmmm",
    "opohoppoogqooghoqoonhqhqqqhthdtoqqrtttrqstbtet",
    "lmlmlmmmlnnmllllnmllmnmnnnjrnlqlnnorrronprarrr",
    "lmlmlmmllnmlllllnllkmmmnmnjqnlqlmnoqqqonpqaqqq",
    "lmlmlmmllnmlllllnllkmmmnmnjqnlqlmnoqqqonpqaqqq",
    "ghghghhggiigggggiggfhihiiidyigpfiijyyyjilyqttt",
};

constexpr PairTable kHeaderTextPairs = {
    "fggghhhieiiggeigiggfhiihhieilisjjiiznojmjzzpsv",
    "ghghghihfgigghgiihgihiiifidjljsjljizqqomizzttz",
    "fihgfhifgigghidiiggfiiiiiiejljvjkjiwnoomhwzqtv",
    "fhhhdhihgihihigiigighiiiiiefjgjiijizooniizzssz",
    "ggfghiijijjghfihieegihihijehigjjihmvinijizzssz",
    "ghhggghigiihiifiieggiiiiiidilksjjhjzspomizztss",
    "hhghfhhhgihgggghhhhihhgiiiefhgkijljzgmoihzzstz",
    "fhhheihhghihhhghhhhgghhhhhefkjsjjlhznqjmizzqsz",
    "gggfhigiiiiegeggiiefihihiiflnkjkqmjzpoomjzzqst",
    "ggggfgggggggggggggggggggggelnlzitnpzsrqjizzrsz",
    "ghggfhhhghhghgghhggghhhhhheilfqipjmvmpnlizzsvz",
    "fiiifgihdiihhieiiiggiiiihieijgqjjilzlnmjizzrqz",
    "eghigiiieiihhiggiiifhiihiiefhjmjijiwhnjiizzsrv",
    "fhggehfigihiiifiiigfghhiiifhlgijjhitmomjizzrqz",
    "iihgigiiiigieeggieggfiiiiifjmjqjilkwnqomjzztut",
    "fiihfgighiighiggieghiiiiiiegliqjjijukpmljvzssz",
    "ggggggggggggggggggggfgggggdmmlziqmiuqumoizzuzz",
    "giggeieigiiihgehiiggihiiiieglgpjjjiwmopmiwzqrv",
    "gigifiiggiiifiggiigegiiiiifgjfojjijzooijhzzssu",
    "hihiehifgiigiigfihfggiiiiifgihkiigitjomigzzqrz",
    "gfghgihihihggeihigeeihigiiejmlijrlmzlpomjzzssz",
    "ghggehghgghhhhghhhhhhhghhheimjpikkizmqppizzrsz",
    "ghhggghhehhghgghhgghhhgghhekliliqljzqsmoizzzsz",
    "ghghghhhghhgghgghhhghhhgghejmhmijgmzmqomgzzztz",
    "ghhhghhhhhhhgggghhgghhhhhgeejjoimiitpomkhzzttz",
    "ggggggggggggggggggggggggggdkllqiqmszmrpmizzzuz",
    "iiiiiijjjjjjiijijjjijjjjjjbgigmjgiolpoligyzwvz",
    "gghgigjhgjligiiilighkjgllmecmoqolisgqmonevzons",
    "ggjhiejjgklggihhkihgjijllmddguuqqoqeziqqjzznlq",
    "hjdghiikiliihgdgmjhijklkmmclmoumzqzzsmqvpzztpz",
    "ozosoozjqpzsssyqzqlyqozzzzibfzezzjzmzossszzznz",
    "ghhhhhhghhhfghgehggghhhhhhdlmtzgltzzjttqizzztz",
    "ikghgipojjqhhkjnmhhikqpiqqbgmttigtlqzrzkjzzzzz",
    "ggifggjjglijggiimgggfikllnckqltuuhluqsnqpzztrz",
    "highigihijjhgejfjfgehkjjklemfzzolkeltgjgizzzzz",
    "ghggijjejhjedighjhgihkjjjjepzmzdzzzslqlnlzzzzz",
    "sszsyzzszzzzzzyqzzzzzszszzdfbzezzzsmszzegzzzsz",
    "giihhjkkhkjgijhinjgigkjmlmgcdnjnjghjjhigjozzmz",
    "ejijfkeiikmijijjmfejjlfjlmcognjpqlkszkhofzzzpz",
    "hmhghmmljiljnmiioifoipltsqjbeozttqmssmtnnzzzsz",
    "iihiiiiiiiiegiigjihihhjjjjcefqqlkoqnqomjetzspz",
    "mnmmmnnnmoommmmmomfmnooooojlomqooopqqrqpbfqrrs",
    "molllmnmnqzmmljoojmknnnooqmgjllrmmzmrmpplzbecl",
    "vvvvuvvvvwwvvvvvwvvvvwwwwwsuwvyxwwxyyzyxvzazzz",
    "wyxxwyyywyyxxxwxywwwyyyyyytwyxzzyyzzzzzzxzazzz",
    "pqqqpqqqprrqqqpqrpppqrrrrrmorqtsrrsttutsqvauuv",
    "ghggghhhgiihggghiggghiiiiidgihljiijllmljhxlpmu",
};

constexpr std::array<Furniture, 8> kTextFurniture = {{
    {8, "~the~ the"},
    {9, "and com ing tion"},
    {10, "~and~ ------ ______ all ation dev for int list mail ons our this use you"},
    {11, "~>~>~ ~for~ ~that~ ~this~ ~with~ ~you~ ~your~ .com .org able add are can end file "
         "from get here http inc lists ment net not one open org out per ret set size that "
         "user with your"},
    {12, "~from~ ~have~ ~of~the~ 000000 any block but check count data date device diff email "
         "git has have how http:// https https:// info let line link linux lock log low "
         "message mode name new node now off opt over own part put read return see send some "
         "state subscribe test than thank there time unsubscribe users video was will work "
         "wrote wrote:"},
    {13, "~~~~ ##### &nbsp; ****** ++++++ ...... .com/ .gif .html .jpg .net .php .png ====== "
         "about account address after also back base been best bit bus business call card case "
         "change char click click~here code command company const contact control day default "
         "define devel did does don e-mail error etc even files flag free got help host "
         "http://www. https://www. image include index information interface into its just "
         "know like live long look mailing mailto: main make map max may more much n't~ nbsp "
         "need next nor num number old only option order other page patch people please post "
         "price rate receive right run same security sent service should side signed source "
         "start static subject support system table target thanks then top try two type update "
         "used using version very via void way web what when which would write www www."},
    {14, "access action active because before being below between blocks body build changed "
         "channel client complete content copy could create current devices different down "
         "each else enable entry event every example external failed find first fix found full "
         "function give gmail good google group had handle hello home html important inline "
         "intel issue key last leave length level load local lot mailman many master "
         "mean might most mount network non null object offset once online options package "
         "place point power problem process project question range regards remove result root "
         "section select show since site status still stop such super sure sync take team "
         "their them these they think though thread through tree trouble under unsigned value "
         "view want warning well were where while who works world"},
    {15, "adding again allow args both break correct feature hard however mailto "
         "offer original possible present provide raw register regular report reserved "
         "solution something space total true uses visit without won working"},
}};

constexpr std::array<Furniture, 6> kRawTextFurniture = {{
    {8, "~~~~~~"},
    {9, "=3d =3d\" gicagica icagicag ing the"},
    {10, "<br> and style= tion"},
    {11, "------ .com 0px; </div> </td> <td~ align= all ation class= color: font-size: for "
         "http:// margin our padding style=\" width= you"},
    {12, "!important; \"center\" &nbsp; .com/ .org 000000 100% </a> </p> </span> </table> "
         "</tr> <a~ <div~ <p~ <span~ <table~ <tr> =20 ______ aaaaaa align=\" are border- "
         "border= cellpadding= cellspacing= charset= class=\" color:# content-type: display: "
         "font-family: href= href=\" https:// not sans-serif src= that this width=\" with"},
    {13, "&amp; &gt; &lt; ****** ...... .gif .html .jpg .net .php .png </b> </font> </html> "
         "<a~href=\" <a~href=\"http <b> <body <br~/> <font~ <head> <html> <img~ <meta <strong> "
         "<style <title> =09=09 ====== =c2=a0 =e2=80= arial, background- background-color: "
         "bgcolor= border=\"0\" boundary= can charset=\"utf-8\" click~here contact "
         "content-transfer-encoding: e-mail email font-weight: from have height= height=\" "
         "helvetica here href=3d\"http http://www. https://www. information jcqkjcqk "
         "line-height: mailto: message more multipart/ pj4+pj4+ please quoted-printable src=\" "
         "subscribe target=\"_blank\" text-align: text-decoration: text/html text/plain "
         "unsubscribe valign= will www. your"},
}};

constexpr std::array<Furniture, 7> kUriFurniture = {{
    {7, ".co .com http://"},
    {8, ".com/ com/ https://"},
    {9, ".org .org/ //www. list mail org/ www."},
    {10, "%20 .de .htm .html .net .net/ .png .ru http://www. https://www. info ing lists "
         "mailto: net/"},
    {11, "%2f .cn .gif .jp .php .w3.org/ google image images tion track update user"},
    {12, ".asp .co.uk .jpg .w3.org/1999/xhtml /images/ click googleapis index link online the"},
    {13, "%3a %3d &id= .css .edu .gov .js 0000 ?id= archive assets content download email= "
         "facebook ftp:// news static subject= twitter unsubscribe upload utm_campaign= "
         "utm_medium= utm_source="},
}};

constexpr std::array<Furniture, 6> kHeaderTextFurniture = {{
    {8, ".com"},
    {9, ".org 0000 from lists mail"},
    {10, "~id~ .outlook.com by~ for from~ ing with"},
    {11, "~+0000 .net .prod.outlook.com for~< header message subject subscribe tion"},
    {12, "~(pdt) ~(postfix)~with~ ~-0700 ~apr~ ~may~ ~with~esmtp~id~ 1.0 <mailto: "
         "_aes_256_gcm_ _gcm_sha384 cipher= domain ecdhe email fri,~ localhost mailto: "
         "message-id mime mon,~ not our rsa-sha256; server thu,~ tue,~ wed,~ with~smtp~"},
    {13, "~[127.0.0.1]) ~aug~ ~dec~ ~feb~ ~gmt ~jan~ ~jul~ ~jun~ ~mar~ ~nov~ ~oct~ ~sep~ .com/ "
         ".google.com .html .yahoo.com ==?= =?iso-8859-1?q? =?utf-8? =?utf-8?b? =?utf-8?q? "
         "@gmail.com all and are ation base64 boundary= can charset= charset=\"utf-8\" "
         "click~here contact content-type e-mail esmtps fwd:~ gmail.com have here http:// "
         "http://www. https:// https://www. information iso-8859-1 list-unsubscribe "
         "microsoft~smtp~server more multipart/ please quoted-printable re:~ received "
         "received: relaxed/ text/html text/plain that the this transport; unsubscribe "
         "us-ascii utf-8 version=tls1_2 will www. yahoo you your"},
}};

// As TextKind numbers them.
template <std::size_t Size>
constexpr FrequencyTable s_table(const PairTable &pairs,
                                 const std::array<Furniture, Size> &furniture) {
    return {&pairs, furniture.data(), Size};
}

} // namespace

const FrequencyTable &frequencyTable(TextKind kind) {
    static constexpr std::array<FrequencyTable, 4> kTables = {
        s_table(kTextPairs, kTextFurniture), s_table(kRawTextPairs, kRawTextFurniture),
        s_table(kUriPairs, kUriFurniture), s_table(kHeaderTextPairs, kHeaderTextFurniture)};
    return kTables[static_cast<std::size_t>(kind)];
}

} // namespace Corvane::Regex
